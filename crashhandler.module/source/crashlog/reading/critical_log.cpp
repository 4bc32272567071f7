#include "crashlog/reading/block.h"
#include "crashlog/reading/section_parsers.h"

namespace tarvo::crashhandler {

Result<DataArray> ParseCriticalLog(Tokenizer& tokens) {
  DataArray lines;
  Result<void> result = ReadBlock(tokens, BlockKind::Log, [&]() -> Result<void> {
    if (Result<void> taken = TakeRoom(tokens, room::kText); !taken) return taken;
    lines.Append(tokens.Share(tokens.LineFromToken()));
    return {};
  });
  if (!result) return result.GetError();
  return lines;
}

}  // namespace tarvo::crashhandler
