#include "toolkit/document/crash_document.h"

#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

#include <algorithm>

#include "tarvo/crash_report.h"
#include "tarvo/format.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/document/document_reader.h"
#include "toolkit/report/report_lines.h"

namespace tarvo::toolkit {

using crash_report::property::kOutcomeReport;

namespace {

constexpr SourceFile kCrashDocument{"command/document/crash_document"};

Error NotShown(SourceLocation where, const std::string& name, const std::string& reason) {
  return Error::IllegalArgument(where, Format("\"@\": @", SafeText(name), reason));
}

Error JsonError(std::string_view text, const std::string& name,
                const rapidjson::ParseResult& result) {
  const std::string_view before = text.substr(0, std::min(result.Offset(), text.size()));
  const auto lines = std::ranges::count(before, '\n');
  const std::size_t column = before.size() - (before.rfind('\n') + 1);
  return NotShown(kCrashDocument.Here(), name,
                  Format("found no JSON at line @, column @ (@), expected a resolved crash log.",
                         lines + 1, column + 1, rapidjson::GetParseError_En(result.Code()))
                      .ToStdString());
}

}  // namespace

std::string_view FindText(const TextPairs& pairs, std::string_view key) {
  const auto pair = std::ranges::find(pairs, key, &TextPairs::value_type::first);
  return pair == pairs.end() ? std::string_view() : pair->second;
}

Result<CrashDocument> ParseCrashDocument(std::string_view text, const std::string& name) {
  if (!report::Magic(text).empty())
    return NotShown(kCrashDocument.Here(), name,
                    "found a crash report that is not resolved; run `tarvo resolve` on it first, "
                    "and show the file *.resolved.json that it leaves.");
  // Iterative, so that deep nesting cannot exhaust the stack; texts are unescaped in their place.
  constexpr unsigned kFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseInsituFlag |
                              rapidjson::kParseValidateEncodingFlag;
  CrashDocument document;
  const auto copy = std::make_shared<std::string>(text);
  document.storage = copy;
  // The reader takes all bytes that the first one of a character announces, the end's zero among
  // them.
  constexpr std::size_t kLongestCharacter = 4;
  copy->append(kLongestCharacter, '\0');
  DocumentReader handler(document);
  rapidjson::InsituStringStream stream(copy->data());
  const rapidjson::ParseResult result = rapidjson::Reader().Parse<kFlags>(stream, handler);
  if (result.IsError()) return JsonError(text, name, result);
  // The parser takes a NUL for the end.
  if (const std::size_t end = text.find('\0'); end != std::string_view::npos)
    return JsonError(text, name, {rapidjson::kParseErrorDocumentRootNotSingular, end});
  if (!handler.HasThreads() && FindText(document.outcome, kOutcomeReport).empty())
    return NotShown(kCrashDocument.Here(), name,
                    "found JSON without an array \"Threads\", expected a resolved crash log.");
  return document;
}

}  // namespace tarvo::toolkit
