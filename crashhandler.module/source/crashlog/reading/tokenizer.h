#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "crashlog/reading/damage.h"
#include "tarvo/result.h"
#include "tarvo/string.h"

namespace tarvo::crashhandler {

enum class TokenKind : std::uint8_t {
  EndOfFile,
  Illegal,     ///< a character that starts no token ("?", "@", "\", a control character, non-ASCII)
  Identifier,  ///< a run of ASCII letters, digits and "_" that does not start with a digit
  String,      ///< from a `"` to the next one, or to the end of the line
  CharacterString,  ///< the same with "'"
  Number,           ///< a run of letters, digits and "_" that starts with a digit
  OpenBrace,
  CloseBrace,
  OpenParenthesis,
  CloseParenthesis,
  OpenBracket,
  CloseBracket,
  Slash,
  Equals,
  Comma,
  Semicolon,
  Colon,
  Plus,
  Tilde,
  Preprocessor,  ///< "#"
  Asterisk,
  Bar,
  Ampersand,
  OtherOperator,  ///< one of -.<>!%^
};

/// The kind in words, for messages: "identifier", "{".
[[nodiscard]] std::string_view KindName(TokenKind kind) noexcept;

/// Cuts a crash report into tokens and lines. White space (blanks, tabs, line ends) stands between
/// tokens; a line ends with "\n" or "\r\n". No token crosses a line end. A byte order mark in front
/// of the text is skipped. Any bytes may come; every operation takes time linear in what it reads.
///
/// Texts are handed out as views into the report; `Share` makes a view a String without a copy.
class Tokenizer {
 public:
  explicit Tokenizer(String text, OnDamage onDamage = OnDamage::Fail) noexcept;

  /// Reads the next token; at the end of the text, again and again, EndOfFile.
  TokenKind ReadNext() noexcept;
  /// The same; an error that names the line and both kinds when the token is of another kind.
  Result<void> ReadNext(TokenKind expected);

  [[nodiscard]] TokenKind Kind() const noexcept { return kind_; }
  /// The current token as written; empty at the end of the text.
  [[nodiscard]] std::string_view Text() const noexcept { return token_; }
  [[nodiscard]] bool IsIdentifier(std::string_view text) const noexcept {
    return kind_ == TokenKind::Identifier && token_ == text;
  }
  /// The line of the current token, from 1. Counts the lines since the last call: for messages.
  [[nodiscard]] std::size_t Line() const noexcept;

  /// What follows the current token on its line, without leading blanks and tabs and without the
  /// line's end. Reading goes on with the next line.
  std::string_view RestOfLine() noexcept;
  /// The current token and everything that follows it on its line, without the line's end. Reading
  /// goes on with the next line.
  std::string_view LineFromToken() noexcept;
  /// Gives back `tail`, the end of what was read last: reading goes on with its first character.
  void Return(std::string_view tail) noexcept { next_ = tail.data(); }

  // For readings that go on behind damage, by whole lines.

  /// What is not read yet of the current line, without its end; nothing at the end of the text.
  [[nodiscard]] std::optional<std::string_view> PeekLine() const noexcept;
  void SkipLine() noexcept { static_cast<void>(LineFrom(next_)); }
  void SkipToEnd() noexcept { next_ = end_; }
  /// Goes back to the start of the current token's line or, where that is the line of `start`, an
  /// earlier token, to the line behind what was read.
  void ReturnToLineBehind(std::string_view start) noexcept;
  /// Whether what was read last ends where the text ends, without a line's end.
  [[nodiscard]] bool IsLineCutShort() const noexcept {
    return next_ == end_ && !text_.IsEmpty() && end_[-1] != '\n';
  }

  /// The state of such a reading; of no use where the reading ends with the first error.
  [[nodiscard]] Recovery& State() noexcept { return state_; }
  [[nodiscard]] bool Salvages() const noexcept { return state_.onDamage == OnDamage::GoOn; }

  /// Whether all of the text is read.
  [[nodiscard]] bool IsAtEnd() const noexcept { return next_ == end_; }
  /// The report's size in bytes.
  [[nodiscard]] std::size_t Size() const noexcept { return text_.Size(); }
  /// Counts `bytes` that the tree takes.
  void CountRoom(std::size_t bytes) noexcept { room_ += bytes; }
  [[nodiscard]] std::size_t Room() const noexcept { return room_; }

  /// A part of the report as a text of its own that shares the report's buffer.
  [[nodiscard]] String Share(std::string_view part) const {
    return text_.Slice(static_cast<std::size_t>(part.data() - text_.View().data()), part.size());
  }

 private:
  std::string_view LineFrom(const char* start) noexcept;

  String text_;
  const char* next_;  ///< the first byte that is not read
  const char* end_;
  std::string_view token_;
  TokenKind kind_ = TokenKind::Illegal;
  Recovery state_;
  std::size_t room_ = 0;
  mutable const char* countedTo_;  ///< up to where the lines are counted, and ...
  mutable std::size_t lines_ = 0;  ///< ... how many ends of lines stand before
};

}  // namespace tarvo::crashhandler
