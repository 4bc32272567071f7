#include "crashlog/reading/frame_line.h"

#include <cstdint>
#include <optional>

#include "crashlog/base/property_names.h"
#include "crashlog/base/text.h"
#include "crashlog/reading/numbers.h"
#include "crashlog/reading/recovery.h"
#include "tarvo/crash_report.h"

namespace tarvo::crashhandler {

namespace frame = crash_report::frame;

namespace {

/// Until frames and what is around them take so much they get room for what resolving adds, so that
/// they need not grow. Beyond that a report's size would multiply.
constexpr std::size_t kRoomyBytes = kFreeTreeBytes / 2;

/// The parts of a frame line in front of " (SP: 0x". Empty stands for "none".
struct ModuleAndFunction {
  std::string_view module;
  std::string_view function;
};

constexpr std::string_view Behind(std::string_view text, std::size_t position) noexcept {
  return position < text.size() ? text.substr(position + 1) : std::string_view{};
}

constexpr bool IsDigit(char c) noexcept { return c >= '0' && c <= '9'; }

/// Where a module's name ends that no ":" ends.
std::size_t EndOfNameBeforeNumber(std::string_view head) noexcept {
  for (std::size_t at = 1; at + 1 < head.size(); ++at)
    if (IsBlank(head[at]) && IsDigit(head[at + 1])) return at;
  return head.size();
}

ModuleAndFunction SplitNamed(std::string_view head, bool hasStackPointer) noexcept {
  const std::size_t colon = head.find(':');
  if (colon != std::string_view::npos) return {head.substr(0, colon), Behind(head, colon)};
  const std::size_t end = hasStackPointer ? EndOfNameBeforeNumber(head) : head.size();
  return {head.substr(0, end), Behind(head, end)};
}

/// Whether a module's name may start so: like an identifier, with "?", or outside of ASCII.
constexpr bool StartsName(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == '?' ||
         (c & 0x80) != 0;
}

/// `rest` is what follows the number. A ":" without a blank behind it is a part of a function's
/// name ("std::sort"), and ends no module's.
ModuleAndFunction SplitNumbered(std::string_view rest) noexcept {
  rest = SkipBlanks(rest);
  const std::size_t colon = rest.find(':');
  if (colon == 0) return {{}, Behind(rest, colon)};
  const bool endsName = colon != std::string_view::npos && colon + 1 < rest.size() &&
                        IsBlank(rest[colon + 1]) && StartsName(rest.front());
  if (!endsName) return {{}, rest};
  return {rest.substr(0, colon), Behind(rest, colon)};
}

/// Whether the number at the start is more than the beginning of a name ("7z.dll").
constexpr bool IsWholeWord(std::string_view head, std::size_t size) noexcept {
  return head.size() == size || IsBlank(head[size]) || head[size] == ':';
}

ModuleAndFunction SplitHead(TokenKind first, std::size_t firstSize, std::string_view head,
                            bool hasStackPointer) noexcept {
  switch (first) {
    case TokenKind::Colon:
      return {{}, Behind(head, 0)};
    case TokenKind::OpenBracket: {
      const std::size_t colon = head.find(':');
      return {{}, colon == std::string_view::npos ? head : Behind(head, colon)};
    }
    case TokenKind::Number:
      if (IsWholeWord(head, firstSize)) return SplitNumbered(head.substr(firstSize));
      [[fallthrough]];
    default:
      return SplitNamed(head, hasStackPointer);
  }
}

/// Where the stack pointer stands behind the module and the function, if it does. The capture
/// prints the null pointer's frame with "(nil)".
std::size_t FindStackPointer(std::string_view line, std::size_t from) noexcept {
  const std::size_t at = line.find(frame::kStackPointerDigits, from);
  return at != std::string_view::npos ? at : line.find(frame::kNullStackPointer, from);
}

/// Where the reading goes on behind damage, a number without its ")" may be half of one.
std::optional<std::uint64_t> FindAddress(std::string_view tail, bool needsEnd) noexcept {
  const std::size_t at = tail.find(frame::kProgramCounterDigits);
  if (at == std::string_view::npos) return std::nullopt;
  const std::string_view number = tail.substr(at + frame::kProgramCounterDigits.size());
  const std::size_t end = number.find(')');
  if (needsEnd && end == std::string_view::npos) return std::nullopt;
  return ParseDigits(number.substr(0, end), 16);
}

/// `first` and `firstSize` are the kind and size of the token that starts the line.
DataDictionary ParseLine(std::string_view line, TokenKind first, std::size_t firstSize,
                         const Tokenizer& tokens) {
  const std::size_t stackPointer = FindStackPointer(line, firstSize);
  const bool hasStackPointer = stackPointer != std::string_view::npos;
  auto [module, function] =
      SplitHead(first, firstSize, line.substr(0, stackPointer), hasStackPointer);
  function = hasStackPointer ? SkipBlanks(function) : Trim(function);
  const std::optional<std::uint64_t> address =
      FindAddress(line.substr(hasStackPointer ? stackPointer : firstSize), tokens.Salvages());

  DataDictionary frame;
  const bool canBeResolved = !module.empty() && address && tokens.Room() < kRoomyBytes;
  frame.Reserve(std::size_t{!module.empty()} + !function.empty() + address.has_value() +
                (canBeResolved ? property::kMostAdded : 0));
  if (!module.empty()) frame.Set(property::kModuleName, tokens.Share(module));
  if (!function.empty()) frame.Set(property::kFunctionName, tokens.Share(function));
  if (address) frame.Set(property::kAddress, *address);
  return frame;
}

}  // namespace

const DataDictionary& FrameReader::Read(Tokenizer& tokens) {
  const TokenKind first = tokens.Kind();
  const std::size_t firstSize = tokens.Text().size();
  const std::string_view line = tokens.LineFromToken();
  isRepeated_ = line == line_;
  if (!isRepeated_) {
    frame_ = ParseLine(line, first, firstSize, tokens);
    line_ = line;
  }
  return frame_;
}

bool FrameReader::IsWhole() const noexcept {
  return frame_.Find(property::kAddress) != nullptr && line_.find(')') != std::string_view::npos;
}

}  // namespace tarvo::crashhandler
