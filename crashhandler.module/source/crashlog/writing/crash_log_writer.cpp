#include "crashlog/writing/crash_log_writer.h"

#include <optional>
#include <string>

#include "crashlog/base/property_names.h"
#include "crashlog/writing/line_writer.h"
#include "tarvo/crash_report.h"

namespace tarvo::crashhandler {

namespace section = crash_report::section;

namespace {

/// Readers of the two variants expect this line at the end of every "Variables" section.
constexpr std::string_view kVariablesEnd = "Arg|HackForMoltwick =";

// --- Looking into the tree, where nothing has to be there ----------------------------------------

template <typename T>
T ValueOf(const DataDictionary& dictionary, std::string_view key, T fallback = {}) {
  const T* value = dictionary.FindAs<T>(key);
  if (value != nullptr) return *value;
  return fallback;
}

std::optional<std::uint64_t> NumberOf(const DataDictionary& dictionary, std::string_view key) {
  const DataValue* value = dictionary.Find(key);
  if (value == nullptr) return std::nullopt;
  if (const auto* number = value->As<std::uint64_t>()) return *number;
  if (const auto* number = value->As<std::int64_t>()) return static_cast<std::uint64_t>(*number);
  return std::nullopt;
}

template <typename Visit>
void ForEachDictionary(const DataDictionary& parent, std::string_view key, Visit visit) {
  const auto* array = parent.FindAs<DataArray>(key);
  if (array == nullptr) return;
  for (const DataValue& element : *array)
    if (const auto* dictionary = element.As<DataDictionary>()) visit(*dictionary);
}

/// The load address of every module by its name; of modules of one name the first one's.
DataDictionary BaseAddresses(const DataDictionary& crashLog) {
  DataDictionary bases;
  ForEachDictionary(crashLog, property::kLoadedModules, [&](const DataDictionary& module) {
    const auto* name = module.FindAs<String>(property::kModuleName);
    const auto* base = module.FindAs<std::uint64_t>(property::kBaseAddress);
    if (name != nullptr && base != nullptr && bases.Find(*name) == nullptr) bases.Set(*name, *base);
  });
  return bases;
}

// --- Writing -------------------------------------------------------------------------------------

void WriteEntry(LineWriter& lines, const String& key, const DataValue& value) {
  std::visit(
      [&]<typename T>(const T& content) {
        if constexpr (std::same_as<T, std::int64_t> || std::same_as<T, std::uint64_t>) {
          lines.Write("  ", key, " = 0x", Hexadecimal{static_cast<std::uint64_t>(content)});
        } else if constexpr (std::same_as<T, bool> || std::same_as<T, double> ||
                             std::same_as<T, String> || std::same_as<T, Url>) {
          lines.Write("  ", key, " = ", content);
        } else {
          lines.Write("  ", key, " = ");
        }
      },
      value.Get());
}

void WriteSection(LineWriter& lines, std::string_view name, const DataDictionary& entries) {
  lines.Write(name);
  lines.Write("{");
  for (const auto& [key, value] : entries) WriteEntry(lines, key, value);
  if (name == section::kVariables) lines.Write(kVariablesEnd);
  lines.Write("}");
}

void WriteDocuments(LineWriter& lines, const DataDictionary& crashLog) {
  lines.Write(section::kOpened, " ", section::kScenes);
  lines.Write("{");
  ForEachDictionary(crashLog, property::kDocuments, [&](const DataDictionary& document) {
    lines.Write("  ", ValueOf<String>(document, property::kDocumentName), " = ",
                ValueOf<String>(document, property::kDocumentPath));
  });
  lines.Write("}");
}

void WriteFrame(LineWriter& lines, const DataDictionary& frame, const DataDictionary& bases) {
  const auto module = ValueOf<String>(frame, property::kModuleName);
  const auto address = NumberOf(frame, property::kAddress);
  const auto base = NumberOf(bases, module);
  const auto line = NumberOf(frame, property::kSourceLine);
  lines.Write("  ", module, ": 0x", Hexadecimal{address.value_or(0)}, " {",
              ValueOf<String>(frame, property::kFunctionName), ";",
              ValueOf<String>(frame, property::kSourceFileName), ";",
              line ? std::to_string(*line) : std::string(), ";0x",
              Hexadecimal{address && base ? *address - *base : 0}, "}");
}

void WriteThread(LineWriter& lines, const DataDictionary& thread, const DataDictionary& bases) {
  lines.Write(section::kThreadPrefix, NumberOf(thread, property::kThreadNumber).value_or(0));
  lines.Write("{");
  ForEachDictionary(thread, property::kCallstack,
                    [&](const DataDictionary& frame) { WriteFrame(lines, frame, bases); });
  WriteSection(lines, section::kVariables, ValueOf<DataDictionary>(thread, property::kProperties));
  WriteSection(lines, section::kRegisters, ValueOf<DataDictionary>(thread, property::kRegisters));
  lines.Write("}");
}

void WriteThreads(LineWriter& lines, const DataDictionary& crashLog) {
  const DataDictionary bases = BaseAddresses(crashLog);
  lines.Write(section::kCallStacks);
  lines.Write("{");
  ForEachDictionary(crashLog, property::kThreads,
                    [&](const DataDictionary& thread) { WriteThread(lines, thread, bases); });
  lines.Write("}");
}

void WriteModules(LineWriter& lines, const DataDictionary& crashLog) {
  lines.Write(section::kLoadedModules);
  lines.Write("{");
  ForEachDictionary(crashLog, property::kLoadedModules, [&](const DataDictionary& module) {
    const auto name = ValueOf<String>(module, property::kModuleName);
    std::string title(crash_report::key::kModuleName);
    title += " = ";
    title += name.IsEmpty() ? crash_report::kUnknown : name.View();
    WriteSection(lines, title, module);
  });
  lines.Write("}");
}

}  // namespace

Result<void> WriteCrashLog(const DataDictionary& crashLog, OutputFile& file) {
  LineWriter lines(file);
  const auto computer = ValueOf<DataDictionary>(crashLog, property::kComputerInfo);
  const bool isWindows =
      ValueOf<String>(computer, property::kOsType).Contains(crash_report::kWindowsSystem);
  lines.Write(isWindows ? crash_report::kWindowsMagic : crash_report::kMacosMagic);
  lines.Write("{");
  WriteSection(lines, section::kComputerInfo, computer);
  WriteSection(lines, section::kApplicationInfo,
               ValueOf<DataDictionary>(crashLog, property::kApplicationInfo));
  WriteSection(lines, section::kException, ValueOf<DataDictionary>(crashLog, property::kException));
  WriteDocuments(lines, crashLog);
  WriteThreads(lines, crashLog);
  WriteModules(lines, crashLog);
  lines.Write("}");
  return lines.Outcome();
}

}  // namespace tarvo::crashhandler
