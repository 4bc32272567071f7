#include <utility>

#include "crashlog/block.h"
#include "crashlog/frame_line.h"
#include "crashlog/numbers.h"
#include "crashlog/property_names.h"
#include "crashlog/report_keywords.h"
#include "crashlog/section_parsers.h"

namespace tarvo::crashhandler {
namespace {

constexpr bool StartsFrameLine(TokenKind kind) noexcept {
  return kind == TokenKind::Identifier || kind == TokenKind::Number || kind == TokenKind::Colon ||
         kind == TokenKind::Illegal || kind == TokenKind::OpenBracket;
}

/// Reads a block and puts it into `thread`.
Result<void> ReadInto(DataDictionary& thread, const String& property,
                      Result<DataDictionary> (*parse)(Tokenizer&), Tokenizer& tokens) {
  Result<DataDictionary> block = parse(tokens);
  if (!block) return block.GetError();
  thread.Set(property, *std::move(block));
  return {};
}

}  // namespace

Result<DataArray> ParseThreads(Tokenizer& tokens) {
  DataArray threads;
  Result<void> result = ReadBlock(tokens, [&]() -> Result<void> {
    if (tokens.Kind() != TokenKind::Identifier ||
        !tokens.Text().starts_with(keyword::kThreadPrefix))
      return ErrorInLine("ParseThreads found an error in line @", tokens);
    Result<DataDictionary> thread = ParseCallstack(tokens);
    if (!thread) return thread.GetError();
    threads.Append(*std::move(thread));
    return {};
  });
  if (!result) return result.GetError();
  return threads;
}

Result<DataDictionary> ParseCallstack(Tokenizer& tokens) {
  const Result<std::uint64_t> number =
      ToThreadNumber(tokens.Text().substr(keyword::kThreadPrefix.size()), tokens);
  if (!number) return number.GetError();
  DataDictionary thread;
  thread.Set(property::kThreadNumber, *number);

  DataArray frames;
  Result<void> result = ReadBlock(tokens, [&]() -> Result<void> {
    if (tokens.IsIdentifier(keyword::kRegisters))
      return ReadInto(thread, property::kRegisters, ParseRegisters, tokens);
    if (tokens.IsIdentifier(keyword::kVariables))
      return ReadInto(thread, property::kProperties, ParseVariables, tokens);
    if (!StartsFrameLine(tokens.Kind()))
      return ErrorInLine("ParseCallstack found an error in line @", tokens);
    frames.Append(ReadFrameLine(tokens));
    return {};
  });
  if (!result) return result.GetError();
  thread.Set(property::kCallstack, std::move(frames));
  return thread;
}

}  // namespace tarvo::crashhandler
