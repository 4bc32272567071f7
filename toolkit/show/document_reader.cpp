#include "toolkit/show/document_reader.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace tarvo::toolkit {
namespace {

using Place = DocumentReader::Place;

/// The objects and arrays that are known: what opens inside of what, under which key.
struct Step {
  Place from;
  std::string_view key;
  bool isArray;
  Place to;
};
constexpr std::array kSteps = {Step{Place::Outside, "", false, Place::Document},
                               Step{Place::Document, "ApplicationInfo", false, Place::Application},
                               Step{Place::Document, "ComputerInfo", false, Place::Computer},
                               Step{Place::Document, "Exception", false, Place::Exception},
                               Step{Place::Document, "Threads", true, Place::Threads},
                               Step{Place::Threads, "", false, Place::Thread},
                               Step{Place::Thread, "Properties", false, Place::Variables},
                               Step{Place::Thread, "Registers", false, Place::Registers},
                               Step{Place::Thread, "Callstack", true, Place::Frames},
                               Step{Place::Frames, "", false, Place::Frame},
                               Step{Place::Document, "LoadedModules", true, Place::Modules},
                               Step{Place::Modules, "", false, Place::Module},
                               Step{Place::Document, "Documents", true, Place::Scenes},
                               Step{Place::Scenes, "", false, Place::Scene},
                               Step{Place::Document, "CriticalLog", true, Place::CriticalLog}};

/// The members that are known: which value they set. The object that they are of is the last one.
template <typename Value>
struct Field {
  Place place;
  std::string_view key;
  void (*set)(CrashDocument& document, Value value);
};
DocumentFrame& LastFrame(CrashDocument& document) { return document.threads.back().frames.back(); }

using Text = std::string_view;
constexpr std::array kTexts = {
    Field<Text>{Place::Frame, "ModuleName",
                [](CrashDocument& d, Text text) { LastFrame(d).module = text; }},
    Field<Text>{Place::Frame, "FunctionName",
                [](CrashDocument& d, Text text) { LastFrame(d).function = text; }},
    Field<Text>{Place::Frame, "SourceFileName",
                [](CrashDocument& d, Text text) { LastFrame(d).sourceFile = text; }},
    Field<Text>{Place::Module, "ModuleName",
                [](CrashDocument& d, Text text) { d.modules.back().name = text; }},
    Field<Text>{Place::Module, "Build",
                [](CrashDocument& d, Text text) { d.modules.back().build = text; }},
    Field<Text>{Place::Scene, "DocumentName",
                [](CrashDocument& d, Text text) { d.scenes.back().first = text; }},
    Field<Text>{Place::Scene, "DocumentPath",
                [](CrashDocument& d, Text text) { d.scenes.back().second = text; }},
    Field<Text>{Place::CriticalLog, "",
                [](CrashDocument& d, Text text) { d.criticalLog.push_back(text); }}};

using Number = std::uint64_t;
constexpr std::array kNumbers = {
    Field<Number>{Place::Thread, "ThreadNumber",
                  [](CrashDocument& d, Number number) { d.threads.back().number = number; }},
    Field<Number>{Place::Frame, "SourceLine",
                  [](CrashDocument& d, Number number) { LastFrame(d).sourceLine = number; }},
    Field<Number>{Place::Frame, "Address",
                  [](CrashDocument& d, Number number) { LastFrame(d).address = number; }},
    Field<Number>{Place::Module, "BaseAddress",
                  [](CrashDocument& d, Number number) { d.modules.back().baseAddress = number; }},
    Field<Number>{Place::Module, "BaseSize",
                  [](CrashDocument& d, Number number) { d.modules.back().size = number; }}};

template <typename Fields, typename Value>
void SetField(const Fields& fields, Place place, std::string_view key, CrashDocument& document,
              Value value) {
  const auto field = std::ranges::find_if(
      fields, [&](const auto& known) { return known.place == place && known.key == key; });
  if (field != fields.end()) field->set(document, value);
}

/// Takes a frame apart that its report has in one text, "libscene.so(_ZN5scene+0x30) [0x7fe3]", as
/// capture writes it and resolution leaves it.
void SplitModuleText(DocumentFrame& frame) {
  const std::size_t open = frame.module.rfind('(');
  const std::size_t close = frame.module.rfind(") [0x");
  if (open == std::string_view::npos || close == std::string_view::npos || close < open ||
      !frame.module.ends_with(']'))
    return;
  const std::string_view digits = frame.module.substr(close + 5);
  std::uint64_t address = 0;
  if (std::from_chars(digits.data(), digits.data() + digits.size() - 1, address, 16).ec ==
      std::errc{})
    frame.address = address;
  frame.function = frame.module.substr(open + 1, close - open - 1);
  frame.module = frame.module.substr(0, open);
}

}  // namespace

bool DocumentReader::Open(bool isArray) {
  const auto step = std::ranges::find_if(kSteps, [&](const Step& known) {
    return known.from == places_.back() && known.key == key_ && known.isArray == isArray;
  });
  if (unknownDepth_ > 0 || step == kSteps.end()) {
    ++unknownDepth_;
  } else {
    places_.push_back(step->to);
    Enter(step->to);
  }
  key_ = {};
  return true;
}

bool DocumentReader::Close() {
  key_ = {};
  if (unknownDepth_ > 0) {
    --unknownDepth_;
    return true;
  }
  if (places_.back() == Place::Frame && LastFrame(document_).function == "(nil)")
    SplitModuleText(LastFrame(document_));
  places_.pop_back();
  return true;
}

void DocumentReader::Enter(Place place) {
  hasThreads_ |= place == Place::Threads;
  if (place == Place::Thread) document_.threads.emplace_back();
  if (place == Place::Frame) document_.threads.back().frames.emplace_back();
  if (place == Place::Module) document_.modules.emplace_back();
  if (place == Place::Scene) document_.scenes.emplace_back();
}

TextPairs* DocumentReader::OpenPairs() {
  switch (places_.back()) {
    case Place::Application:
      return &document_.application;
    case Place::Computer:
      return &document_.computer;
    case Place::Exception:
      return &document_.exception;
    case Place::Variables:
      return &document_.threads.back().variables;
    case Place::Registers:
      return &document_.threads.back().registers;
    default:
      return nullptr;
  }
}

bool DocumentReader::Key(const char* text, unsigned size, bool /*copy*/) {
  key_ = {text, size};
  return true;
}

bool DocumentReader::String(const char* text, unsigned size, bool /*copy*/) {
  if (unknownDepth_ > 0) return true;
  const std::string_view value(text, size);
  if (TextPairs* pairs = OpenPairs()) {
    pairs->emplace_back(key_, value);
  } else {
    SetField(kTexts, places_.back(), key_, document_, value);
  }
  return true;
}

bool DocumentReader::Uint64(std::uint64_t value) {
  if (unknownDepth_ == 0) SetField(kNumbers, places_.back(), key_, document_, value);
  return true;
}

bool DocumentReader::Bool(bool value) {
  if (unknownDepth_ == 0 && places_.back() == Place::Module && key_ == "IsExecutable")
    document_.modules.back().isExecutable = value;
  return true;
}

}  // namespace tarvo::toolkit
