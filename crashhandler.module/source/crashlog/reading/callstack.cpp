#include <algorithm>
#include <utility>

#include "crashlog/base/property_names.h"
#include "crashlog/reading/block.h"
#include "crashlog/reading/frame_line.h"
#include "crashlog/reading/numbers.h"
#include "crashlog/reading/section_parsers.h"
#include "tarvo/crash_report.h"

namespace tarvo::crashhandler {

namespace section = crash_report::section;

namespace {

constexpr bool StartsFrameLine(TokenKind kind) noexcept {
  return kind == TokenKind::Identifier || kind == TokenKind::Number || kind == TokenKind::Colon ||
         kind == TokenKind::Illegal || kind == TokenKind::OpenBracket;
}

/// Memory is not prepared for more entries than this, so that it cannot be made to cost more than
/// what is read into it.
constexpr std::size_t kMaximumPrepared = 128;

/// How many entries to expect where `previous` has the array or dictionary `key`.
template <typename Container>
std::size_t ExpectedSize(const DataDictionary& previous, const String& key) noexcept {
  const auto* container = previous.FindAs<Container>(key);
  return container == nullptr ? 0 : std::min(container->Size(), kMaximumPrepared);
}

/// Puts a block that was read into `thread`.
Result<void> Store(DataDictionary& thread, const String& key, Result<DataDictionary> block) {
  if (!block) return block.GetError();
  thread.Set(key, *std::move(block));
  return {};
}

}  // namespace

Result<DataArray> ParseThreads(Tokenizer& tokens) {
  DataArray threads;
  DataDictionary previous;
  Result<void> result = ReadBlock(tokens, BlockKind::Threads, [&]() -> Result<void> {
    if (tokens.Kind() != TokenKind::Identifier ||
        !tokens.Text().starts_with(section::kThreadPrefix))
      return ErrorInLine("ParseThreads found an error in line @", tokens);
    Result<DataDictionary> thread = ParseCallstack(tokens, previous);
    if (!thread) return thread.GetError();
    if (Result<void> taken = TakeRoom(tokens, room::kThread); !taken) return taken;
    previous = *thread;
    threads.Append(*std::move(thread));
    return {};
  });
  if (!result) return result.GetError();
  return threads;
}

Result<DataDictionary> ParseCallstack(Tokenizer& tokens, const DataDictionary& previous) {
  const Result<std::uint64_t> number =
      ToThreadNumber(tokens.Text().substr(section::kThreadPrefix.size()), tokens);
  if (!number) return number.GetError();
  DataDictionary thread;
  thread.Reserve(previous.Size());
  thread.Set(property::kThreadNumber, *number);

  DataArray frames;
  FrameReader frameReader;
  Result<void> result = ReadBlock(tokens, BlockKind::Thread, [&]() -> Result<void> {
    if (tokens.IsIdentifier(section::kRegisters)) {
      const auto expected = ExpectedSize<DataDictionary>(previous, property::kRegisters);
      return Store(thread, property::kRegisters, ParseRegisters(tokens, expected));
    }
    if (tokens.IsIdentifier(section::kVariables))
      return Store(thread, property::kProperties, ParseVariables(tokens));
    if (!StartsFrameLine(tokens.Kind()))
      return ErrorInLine("ParseCallstack found an error in line @", tokens);
    if (frames.IsEmpty()) frames.Reserve(ExpectedSize<DataArray>(previous, property::kCallstack));
    const DataDictionary& frame = frameReader.Read(tokens);
    if (Result<void> whole = frameReader.IsWhole() ? Result<void>() : CheckLineEnd(tokens); !whole)
      return whole;
    const std::size_t bytes = frameReader.IsRepeated() ? room::kText : room::kDictionary;
    if (Result<void> taken = TakeRoom(tokens, bytes); !taken) return taken;
    frames.Append(frame);
    return {};
  });
  if (!result) return result.GetError();
  thread.Set(property::kCallstack, std::move(frames));
  return thread;
}

}  // namespace tarvo::crashhandler
