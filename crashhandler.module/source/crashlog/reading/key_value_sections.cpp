#include <utility>

#include "crashlog/reading/block.h"
#include "crashlog/reading/line_rules.h"
#include "crashlog/reading/section_parsers.h"

namespace tarvo::crashhandler {
namespace {

/// A block whose entries `readLine()` reads.
template <typename ReadLine>
Result<DataDictionary> ReadSection(Tokenizer& tokens, ReadLine readLine) {
  DataDictionary section;
  Result<void> result = ReadBlock(tokens, BlockKind::Entries, [&]() -> Result<void> {
    Result<KeyAndValue> line = readLine();
    if (!line) return line.GetError();
    if (Result<void> whole = CheckLineEnd(tokens); !whole) return whole;
    section.Set(std::move(line->key), std::move(line->value));
    return {};
  });
  if (!result) return result.GetError();
  return section;
}

Result<DataDictionary> ReadEqualsSection(Tokenizer& tokens, std::string_view tokenMessage) {
  return ReadSection(tokens, [&]() -> Result<KeyAndValue> {
    if (tokens.Kind() != TokenKind::Identifier)
      return ErrorInLine(tokenMessage, tokens, TokenForMessage(tokens));
    return ReadEqualsLine(tokens);
  });
}

}  // namespace

Result<DataDictionary> ParseComputerInfo(Tokenizer& tokens) {
  return ReadEqualsSection(tokens, "ParseComputerInfo found an error in line @ with @");
}

Result<DataDictionary> ParseException(Tokenizer& tokens) {
  return ReadEqualsSection(tokens, "ParseException found an error in line @ with @");
}

Result<DataDictionary> ParseApplicationInfo(Tokenizer& tokens) {
  return ReadSection(tokens, [&]() -> Result<KeyAndValue> {
    if (tokens.Kind() != TokenKind::Identifier)
      return ErrorInLine("ParseApplicationInfo found an error in line @ with @", tokens,
                         TokenForMessage(tokens));
    if (auto line = ReadJoinedLine(tokens, Separator::ColonOrEquals)) return *std::move(line);
    return ErrorInLine("ParseApplicationInfo found an error in line @", tokens);
  });
}

Result<DataDictionary> ParseVariables(Tokenizer& tokens) {
  return ReadSection(tokens, [&]() -> Result<KeyAndValue> {
    if (tokens.Kind() != TokenKind::Identifier)
      return ErrorInLine("ParseVariables found an error in line @ with type @", tokens,
                         KindName(tokens.Kind()));
    if (auto line = ReadJoinedLine(tokens, Separator::Equals)) return *std::move(line);
    return ErrorInLine("ParseVariables found an error in line @", tokens);
  });
}

}  // namespace tarvo::crashhandler
