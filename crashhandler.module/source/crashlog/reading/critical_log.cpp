#include "crashlog/reading/block.h"
#include "crashlog/reading/section_parsers.h"
#include "tarvo/crash_report.h"

namespace tarvo::crashhandler {
namespace {

/// A line of an own report as it was attached; the blank behind the mark may be lost.
std::string_view WithoutPrefix(std::string_view line) {
  constexpr std::string_view kPrefix = crash_report::kAttachedLine;
  if (line.starts_with(kPrefix)) return line.substr(kPrefix.size());
  return line == kPrefix.substr(0, 1) ? std::string_view() : line;
}

}  // namespace

Result<DataArray> ParseCriticalLog(Tokenizer& tokens) {
  DataArray lines;
  Result<void> result = ReadBlock(tokens, BlockKind::Log, [&]() -> Result<void> {
    if (Result<void> taken = TakeRoom(tokens, room::kText); !taken) return taken;
    std::string_view line = tokens.LineFromToken();
    if (tokens.State().isOwn) line = WithoutPrefix(line);
    lines.Append(tokens.Share(line));
    return {};
  });
  if (!result) return result.GetError();
  return lines;
}

}  // namespace tarvo::crashhandler
