#pragma once

#include "crashlog/reading/messages.h"
#include "crashlog/reading/tokenizer.h"
#include "tarvo/result.h"

namespace tarvo::crashhandler {

/// Reads the inside of a braced block up to and including its "}", or up to the end of the text:
/// calls `readEntry()`, which gives a Result<void>, at each token that starts an entry. The first
/// error ends the reading.
template <typename ReadEntry>
Result<void> ReadEntries(Tokenizer& tokens, ReadEntry readEntry) {
  for (;;) {
    const TokenKind kind = tokens.ReadNext();
    if (kind == TokenKind::EndOfFile || kind == TokenKind::CloseBrace) return {};
    if (Result<void> entry = readEntry(); !entry) return entry;
  }
}

/// Reads a whole block: its "{", and the inside as above.
template <typename ReadEntry>
Result<void> ReadBlock(Tokenizer& tokens, ReadEntry readEntry) {
  if (Result<void> brace = tokens.ReadNext(TokenKind::OpenBrace); !brace) return brace;
  return ReadEntries(tokens, readEntry);
}

}  // namespace tarvo::crashhandler
