#include "toolkit/report/crash_mark.h"

#include <string_view>

#include "tarvo/crash_report.h"
#include "toolkit/report/crash_site.h"

namespace tarvo::report {
namespace {

namespace property = crash_report::property;
namespace variable = crash_report::variable;

std::string_view TextIn(const DataDictionary* dictionary, std::string_view key) {
  const String* text = dictionary == nullptr ? nullptr : dictionary->FindAs<String>(key);
  return text == nullptr ? std::string_view() : text->View();
}

/// An element that is no dictionary counts as an empty one.
const DataDictionary& DictionaryAt(const DataArray& array, std::size_t index) {
  static const DataDictionary kEmpty;
  const auto* dictionary = array[index].As<DataDictionary>();
  return dictionary == nullptr ? kEmpty : *dictionary;
}

ThreadFacts FactsOf(const DataDictionary& thread) {
  const auto* variables = thread.FindAs<DataDictionary>(property::kProperties);
  const auto* registers = thread.FindAs<DataDictionary>(property::kRegisters);
  const auto* number = thread.FindAs<std::int64_t>(property::kThreadNumber);
  const auto* wide = thread.FindAs<std::uint64_t>(property::kThreadNumber);
  ThreadFacts facts{.number = std::nullopt,
                    .threadRegister = TextIn(registers, crash_report::kThreadRegister),
                    .fault = TextIn(variables, variable::kFaultProgramCounter),
                    .signal = TextIn(variables, variable::kFaultSignal)};
  if (number != nullptr) facts.number = static_cast<std::uint64_t>(*number);
  if (wide != nullptr) facts.number = *wide;
  return facts;
}

std::vector<FrameName> FramesOf(const DataDictionary& thread) {
  std::vector<FrameName> names;
  const auto* frames = thread.FindAs<DataArray>(property::kCallstack);
  names.reserve(frames == nullptr ? 0 : frames->Size());
  for (std::size_t i = 0; frames != nullptr && i < frames->Size(); ++i) {
    const DataDictionary& frame = DictionaryAt(*frames, i);
    const auto* address = frame.FindAs<std::uint64_t>(property::kAddress);
    names.push_back({.module = TextIn(&frame, property::kModuleName),
                     .function = TextIn(&frame, property::kFunctionName),
                     .address = address == nullptr ? 0 : *address});
  }
  return names;
}

bool HasFrameIn(const DataDictionary& thread, std::string_view module) {
  const auto* frames = thread.FindAs<DataArray>(property::kCallstack);
  for (std::size_t i = 0; frames != nullptr && i < frames->Size(); ++i)
    if (TextIn(&DictionaryAt(*frames, i), property::kModuleName) == module) return true;
  return false;
}

/// Marks element `index` of the array `key`, and returns it; null where there is none.
DataDictionary* Mark(DataDictionary& parent, std::string_view key, std::size_t index) {
  DataValue* value = parent.FindMutable(key);
  auto* array = value == nullptr ? nullptr : value->As<DataArray>();
  if (array == nullptr || index >= array->Size()) return nullptr;
  auto* element = array->Mutable(index).As<DataDictionary>();
  if (element != nullptr) element->Set(String(property::kCrashed), true);
  return element;
}

}  // namespace

void MarkCrash(DataDictionary& crashLog) {
  const auto* threads = crashLog.FindAs<DataArray>(property::kThreads);
  if (threads == nullptr) return;
  const auto* exception = crashLog.FindAs<DataDictionary>(property::kException);
  const auto site = FindCrashSite(
      {.exceptionThread = TextIn(exception, crash_report::key::kExceptionThread),
       .exceptionNumber = TextIn(exception, crash_report::key::kExceptionNumber),
       .exceptionText = TextIn(exception, crash_report::key::kExceptionText),
       .threads = threads->Size(),
       .thread = [&](std::size_t index) { return FactsOf(DictionaryAt(*threads, index)); },
       .frames = [&](std::size_t index) { return FramesOf(DictionaryAt(*threads, index)); },
       .isIn =
           [&](std::size_t index, std::string_view module) {
             return HasFrameIn(DictionaryAt(*threads, index), module);
           }});
  if (!site) return;
  DataDictionary* thread = Mark(crashLog, property::kThreads, site->thread);
  if (thread != nullptr) Mark(*thread, property::kCallstack, site->frame);
}

}  // namespace tarvo::report
