#include <cstddef>
#include <utility>

#include "crashlog/base/text.h"
#include "crashlog/reading/block.h"
#include "crashlog/reading/line_rules.h"
#include "crashlog/reading/section_parsers.h"

namespace tarvo::crashhandler {
namespace {

/// A register line without its first word, from which the pairs are cut one after another.
class RegisterLine {
 public:
  explicit RegisterLine(std::string_view line) noexcept : left_(line) {}

  /// Cuts off what stands before the first "=" of what is left or, failing that, its first ":".
  /// False when it holds neither.
  bool CutName(std::string_view& name) noexcept {
    // Once there is no "=", there is none later: a long line is not searched again at every pair.
    std::size_t separator = hasEquals_ ? left_.find('=') : std::string_view::npos;
    hasEquals_ = separator != std::string_view::npos;
    if (!hasEquals_) separator = left_.find(':');
    if (separator == std::string_view::npos) return false;
    name = left_.substr(0, separator);
    left_.remove_prefix(separator + 1);
    return true;
  }

  /// Cuts off what stands before the first blank, and all blanks around it.
  std::string_view CutValue() noexcept {
    left_ = SkipBlanks(left_);
    std::size_t size = 0;
    while (size < left_.size() && !IsBlank(left_[size])) ++size;
    const std::string_view value = left_.substr(0, size);
    left_ = SkipBlanks(left_.substr(size));
    return value;
  }

  [[nodiscard]] std::string_view Left() const noexcept { return left_; }

  /// Whether all that remains is the block's closing brace: some writers put it there.
  [[nodiscard]] bool IsAtClosingBrace() const noexcept {
    return left_.starts_with('}') && SkipBlanks(left_.substr(1)).empty();
  }

 private:
  std::string_view left_;
  bool hasEquals_ = true;
};

Result<void> ReadRegisterLine(Tokenizer& tokens, DataDictionary& registers) {
  if (tokens.Kind() != TokenKind::Identifier)
    return ErrorInLine("ParseRegisters found an error in line @ with symbol type @", tokens,
                       KindName(tokens.Kind()));
  std::string_view word = tokens.Text();
  RegisterLine line(tokens.RestOfLine());
  do {
    std::string_view name;
    if (!line.CutName(name)) return ErrorInLine("ParseRegisters found an erro in line @", tokens);
    const std::string_view first = std::exchange(word, {});
    const bool isJoined = !first.empty() && !name.empty();
    const String joined = isJoined ? Join(tokens, first, name) : String();
    const std::string_view key = isJoined ? joined.View() : first.empty() ? name : first;
    const std::string_view value = line.CutValue();
    if (Result<void> whole = line.Left().empty() ? CheckLineEnd(tokens) : Result<void>(); !whole)
      return whole;
    if (registers.Find(key) == nullptr)
      registers.Set(isJoined ? joined : tokens.Share(key), tokens.Share(value));
  } while (!line.Left().empty() && !line.IsAtClosingBrace());
  if (!line.Left().empty()) tokens.Return(line.Left());
  return {};
}

}  // namespace

Result<DataDictionary> ParseRegisters(Tokenizer& tokens, std::size_t expected) {
  DataDictionary registers;
  Result<void> result = ReadBlock(tokens, BlockKind::Registers, [&] {
    if (registers.IsEmpty()) registers.Reserve(expected);
    return ReadRegisterLine(tokens, registers);
  });
  if (!result) return result.GetError();
  return registers;
}

}  // namespace tarvo::crashhandler
