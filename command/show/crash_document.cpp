#include "command/show/crash_document.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include <algorithm>
#include <charconv>

#include "command/safe_text.h"
#include "tarvo/format.h"

namespace tarvo::command {
namespace {

using rapidjson::Value;

constexpr SourceFile kSource{"command/show/crash_document"};

std::string_view Text(const Value& value) {
  return value.IsString() ? std::string_view(value.GetString(), value.GetStringLength())
                          : std::string_view();
}

std::optional<std::uint64_t> Number(const Value& value) {
  return value.IsUint64() ? std::optional(value.GetUint64()) : std::nullopt;
}

/// The member `key` of `value`; null where there is none, or `value` is no object.
const Value& Member(const Value& value, std::string_view key) {
  static const Value kNone;
  if (!value.IsObject()) return kNone;
  const auto found = value.FindMember(
      rapidjson::StringRef(key.data(), static_cast<rapidjson::SizeType>(key.size())));
  return found == value.MemberEnd() ? kNone : found->value;
}

TextPairs Pairs(const Value& value) {
  TextPairs pairs;
  if (!value.IsObject()) return pairs;
  for (const auto& member : value.GetObject())
    if (member.value.IsString()) pairs.emplace_back(Text(member.name), Text(member.value));
  return pairs;
}

/// What `read` makes of each element of an array.
template <typename Read>
auto Elements(const Value& value, Read read) {
  std::vector<decltype(read(value))> elements;
  if (!value.IsArray()) return elements;
  elements.reserve(value.Size());
  for (const Value& element : value.GetArray()) elements.push_back(read(element));
  return elements;
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

DocumentFrame ReadFrame(const Value& value) {
  DocumentFrame frame{Text(Member(value, "ModuleName")), Text(Member(value, "FunctionName")),
                      Text(Member(value, "SourceFileName")),
                      Number(Member(value, "SourceLine")).value_or(0),
                      Number(Member(value, "Address"))};
  if (frame.function == "(nil)") SplitModuleText(frame);
  return frame;
}

DocumentThread ReadThread(const Value& value) {
  return {Number(Member(value, "ThreadNumber")), Pairs(Member(value, "Properties")),
          Pairs(Member(value, "Registers")), Elements(Member(value, "Callstack"), ReadFrame)};
}

DocumentModule ReadModule(const Value& value) {
  const Value& isExecutable = Member(value, "IsExecutable");
  return {Text(Member(value, "ModuleName")), Text(Member(value, "Build")),
          Number(Member(value, "BaseAddress")).value_or(0),
          Number(Member(value, "BaseSize")).value_or(0),
          isExecutable.IsBool() && isExecutable.GetBool()};
}

Error NotShown(SourceLocation where, const std::string& name, const std::string& reason) {
  return Error::IllegalArgument(where, Format("\"@\": @", SafeText(name), reason));
}

Error JsonError(std::string_view text, const std::string& name,
                const rapidjson::ParseResult& result) {
  const std::string_view before = text.substr(0, std::min(result.Offset(), text.size()));
  const auto lines = std::ranges::count(before, '\n');
  const std::size_t column = before.size() - (before.rfind('\n') + 1);
  return NotShown(kSource.Here(), name,
                  Format("found no JSON at line @, column @ (@), expected a resolved crash log.",
                         lines + 1, column + 1, rapidjson::GetParseError_En(result.Code()))
                      .ToStdString());
}

/// Whether the text is a report itself, which names its form in the first line.
bool IsReport(std::string_view text) {
  constexpr std::size_t kLongestFirstLine = 100;
  const std::string_view start = text.substr(0, kLongestFirstLine);
  return start.substr(0, start.find('\n')).find("_Crash_Report") != std::string_view::npos;
}

}  // namespace

std::string_view FindText(const TextPairs& pairs, std::string_view key) {
  const auto pair = std::ranges::find(pairs, key, &TextPairs::value_type::first);
  return pair == pairs.end() ? std::string_view() : pair->second;
}

Result<CrashDocument> ParseCrashDocument(std::string_view text, const std::string& name) {
  if (IsReport(text))
    return NotShown(kSource.Here(), name,
                    "found a crash report that is not resolved; run `tarvo resolve` on it first, "
                    "and show the file *.resolved.json that it leaves.");
  // Iterative, so that deep nesting cannot exhaust the stack.
  constexpr unsigned kFlags =
      rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag;
  const auto json = std::make_shared<rapidjson::Document>();
  json->Parse<kFlags>(text.data(), text.size());
  if (json->HasParseError()) return JsonError(text, name, *json);
  const Value& threads = Member(*json, "Threads");
  if (!threads.IsArray())
    return NotShown(kSource.Here(), name,
                    "found JSON without an array \"Threads\", expected a resolved crash log.");
  CrashDocument document;
  document.application = Pairs(Member(*json, "ApplicationInfo"));
  document.computer = Pairs(Member(*json, "ComputerInfo"));
  document.exception = Pairs(Member(*json, "Exception"));
  document.threads = Elements(threads, ReadThread);
  document.modules = Elements(Member(*json, "LoadedModules"), ReadModule);
  document.scenes = Elements(Member(*json, "Documents"), [](const Value& scene) {
    return std::pair(Text(Member(scene, "DocumentName")), Text(Member(scene, "DocumentPath")));
  });
  document.criticalLog = Elements(Member(*json, "CriticalLog"), Text);
  document.storage = json;
  return document;
}

}  // namespace tarvo::command
