#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

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
  explicit Tokenizer(String text) noexcept;

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
  /// The line of the current token, from 1. Counts the lines up to it: for messages.
  [[nodiscard]] std::size_t Line() const noexcept;

  /// What follows the current token on its line, without leading blanks and tabs and without the
  /// line's end. Reading goes on with the next line.
  std::string_view RestOfLine() noexcept;
  /// The current token and everything that follows it on its line, without the line's end. Reading
  /// goes on with the next line.
  std::string_view LineFromToken() noexcept;
  /// Gives back `tail`, the end of what was read last: reading goes on with its first character.
  void Return(std::string_view tail) noexcept { next_ = tail.data(); }

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
};

}  // namespace tarvo::crashhandler
