#pragma once

#include "crashlog/reading/messages.h"
#include "crashlog/reading/recovery.h"
#include "crashlog/reading/tokenizer.h"
#include "tarvo/result.h"

namespace tarvo::crashhandler {

/// Reads the inside of a braced block up to and including its "}", or up to the end of the text:
/// calls `readEntry()`, which gives a Result<void>, at each token that starts an entry. The first
/// error ends the reading, or this block where the reading goes on behind damage (recovery.h).
template <typename ReadEntry>
Result<void> ReadEntries(Tokenizer& tokens, BlockKind block, ReadEntry readEntry) {
  for (;;) {
    const TokenKind kind = tokens.ReadNext();
    if (kind == TokenKind::EndOfFile) return EndWithoutBrace(tokens, block);
    if (kind == TokenKind::CloseBrace) return {};
    const std::string_view start = tokens.Text();
    if (Result<void> entry = readEntry();
        !entry && !Recover(tokens, block, start, entry.GetError()))
      return entry;
    if (!GoesOnIn(tokens, block)) return {};
  }
}

/// Reads a whole block: its "{", and the inside as above.
template <typename ReadEntry>
Result<void> ReadBlock(Tokenizer& tokens, BlockKind block, ReadEntry readEntry) {
  const std::string_view title = tokens.Text();
  if (Result<void> brace = tokens.ReadNext(TokenKind::OpenBrace); !brace) {
    if (!Recover(tokens, block, title, brace.GetError())) return brace;
    if (!GoesOnIn(tokens, block)) return {};
  }
  return ReadEntries(tokens, block, readEntry);
}

}  // namespace tarvo::crashhandler
