#include "crashlog/reading/tokenizer.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>

#include "crashlog/base/source.h"
#include "crashlog/base/text.h"
#include "crashlog/reading/messages.h"
#include "tarvo/crash_report.h"
#include "tarvo/format.h"

namespace tarvo::crashhandler {
namespace {

constexpr std::array<std::string_view, 24> kKindNames = {"end of file",
                                                         "illegal",
                                                         "identifier",
                                                         "string",
                                                         "character string",
                                                         "number",
                                                         "{",
                                                         "}",
                                                         "(",
                                                         ")",
                                                         "[",
                                                         "]",
                                                         "/",
                                                         "=",
                                                         ",",
                                                         ";",
                                                         ":",
                                                         "+",
                                                         "~",
                                                         "#",
                                                         "*",
                                                         "|",
                                                         "&",
                                                         "other operator"};
static_assert(kKindNames.size() == std::size_t{static_cast<int>(TokenKind::OtherOperator)} + 1);

/// What a token that starts with a byte is.
constexpr std::array<TokenKind, 256> kKindOfFirst = [] {
  std::array<TokenKind, 256> kinds{};
  const auto set = [&](std::string_view characters, TokenKind kind) {
    for (const char c : characters) kinds[static_cast<unsigned char>(c)] = kind;
  };
  kinds.fill(TokenKind::Illegal);
  set("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_", TokenKind::Identifier);
  set("0123456789", TokenKind::Number);
  set("\"", TokenKind::String);
  set("'", TokenKind::CharacterString);
  set("-.<>!%^", TokenKind::OtherOperator);
  for (auto kind = static_cast<std::size_t>(TokenKind::OpenBrace);
       kind < static_cast<std::size_t>(TokenKind::OtherOperator); ++kind)
    set(kKindNames[kind], static_cast<TokenKind>(kind));
  return kinds;
}();

constexpr TokenKind KindOfFirst(char c) noexcept {
  return kKindOfFirst[static_cast<unsigned char>(c)];
}
constexpr bool IsWordCharacter(char c) noexcept {
  const TokenKind kind = KindOfFirst(c);
  return kind == TokenKind::Identifier || kind == TokenKind::Number;
}
constexpr bool IsWhiteSpace(char c) noexcept {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

/// The end of the quoted text that starts at `start`: behind the closing quote, or the line's end.
const char* EndOfQuoted(const char* start, const char* end) noexcept {
  const char* at =
      std::find_if(start + 1, end, [&](char c) { return c == *start || c == '\n' || c == '\r'; });
  return at != end && *at == *start ? at + 1 : at;
}

/// The end of an illegal character, which in UTF-8 may be up to four bytes.
const char* EndOfIllegal(const char* start, const char* end) noexcept {
  const char* limit = std::min(end, start + 4);
  return std::find_if(start + 1, limit, [](char c) { return (c & 0xC0) != 0x80; });
}

}  // namespace

std::string_view KindName(TokenKind kind) noexcept {
  return kKindNames[static_cast<std::size_t>(kind)];
}

Tokenizer::Tokenizer(String text, OnDamage onDamage) noexcept
    : text_(std::move(text)),
      next_(text_.View().data()),
      end_(next_ + text_.Size()),
      token_(text_.View().substr(0, 0)),
      state_{.onDamage = onDamage},
      countedTo_(next_) {
  if (text_.StartsWith(crash_report::kByteOrderMark)) next_ += crash_report::kByteOrderMark.size();
}

TokenKind Tokenizer::ReadNext() noexcept {
  while (next_ != end_ && IsWhiteSpace(*next_)) ++next_;
  const char* start = next_;
  if (start == end_) {
    token_ = {start, start};
    return kind_ = TokenKind::EndOfFile;
  }
  kind_ = KindOfFirst(*start);
  switch (kind_) {
    case TokenKind::Identifier:
    case TokenKind::Number:
      next_ = std::find_if_not(start + 1, end_, [](char c) { return IsWordCharacter(c); });
      break;
    case TokenKind::String:
    case TokenKind::CharacterString:
      next_ = EndOfQuoted(start, end_);
      break;
    case TokenKind::Illegal:
      next_ = EndOfIllegal(start, end_);
      break;
    default:
      next_ = start + 1;
  }
  token_ = {start, next_};
  return kind_;
}

Result<void> Tokenizer::ReadNext(TokenKind expected) {
  if (ReadNext() == expected) return {};
  return Error::Plain(kSource.Here(),
                      Format("Expected @ in line @, found @ \"@\"", KindName(expected), Line(),
                             KindName(kind_), TokenForMessage(*this)));
}

std::size_t Tokenizer::Line() const noexcept {
  if (token_.data() < countedTo_) {
    countedTo_ = text_.View().data();
    lines_ = 0;
  }
  lines_ += static_cast<std::size_t>(std::count(countedTo_, token_.data(), '\n'));
  countedTo_ = token_.data();
  return 1 + lines_;
}

std::string_view Tokenizer::RestOfLine() noexcept {
  return SkipBlanks(LineFrom(token_.data() + token_.size()));
}

std::string_view Tokenizer::LineFromToken() noexcept { return LineFrom(token_.data()); }

std::optional<std::string_view> Tokenizer::PeekLine() const noexcept {
  if (next_ == end_) return std::nullopt;
  std::string_view line(next_, std::find(next_, end_, '\n'));
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

void Tokenizer::ReturnToLineBehind(std::string_view start) noexcept {
  const char* line = token_.data();
  while (line != start.data() && line[-1] != '\n') --line;
  if (line != start.data()) {
    next_ = line;
  } else if (next_ != text_.View().data() && next_[-1] != '\n') {
    SkipLine();
  }
}

std::string_view Tokenizer::LineFrom(const char* start) noexcept {
  const auto rest = static_cast<std::size_t>(end_ - start);
  const void* lineEnd = rest == 0 ? nullptr : std::memchr(start, '\n', rest);
  const char* stop = lineEnd == nullptr ? end_ : static_cast<const char*>(lineEnd);
  next_ = lineEnd == nullptr ? end_ : stop + 1;
  if (stop != start && stop[-1] == '\r') --stop;
  return {start, stop};
}

}  // namespace tarvo::crashhandler
