#include "toolkit/triage/names/bracket_skip.h"

#include <algorithm>
#include <array>
#include <string>

namespace tarvo::toolkit {
namespace {

constexpr std::string_view kOpening = "<([{`";
constexpr std::string_view kClosing = ">)]}'";
constexpr std::string_view kOperatorWord = "operator";

/// Longer ones in front of those that they begin with.
constexpr std::array<std::string_view, 42> kSigns = {
    "<=>", "<<=", ">>=", "->*", "()", "[]", "<<", ">>", "->", "<=", ">=", "==",   "!=", "&&",
    "||",  "++",  "--",  "+=",  "-=", "*=", "/=", "%=", "^=", "&=", "|=", "<",    ">",  "+",
    "-",   "*",   "/",   "%",   "^",  "&",  "|",  "~",  "!",  "=",  ",",  "\"\"", "?:", "?"};

/// Whether template arguments, parameters or nothing can stand here.
bool CanFollowSign(std::string_view rest) {
  const std::size_t next = rest.find_first_not_of(' ');
  return next == std::string_view::npos || rest[next] == '(' || rest[next] == '<' ||
         rest[next] == '[';
}

bool IsOperatorAt(std::string_view text, std::size_t at) {
  return text.substr(0, at).ends_with(kOperatorWord);
}

}  // namespace

std::size_t OperatorSign(std::string_view text) {
  if (text.starts_with("\"\"")) return 2;
  for (const std::string_view sign : kSigns) {
    // "operator<<int>(" is "<" with template arguments.
    if (text.starts_with(sign) && CanFollowSign(text.substr(sign.size()))) return sign.size();
  }
  const bool isWord = text.empty() || text[0] == ' ' || text[0] == '_';
  if (isWord) return 0;
  for (const std::string_view sign : kSigns)
    if (sign.size() == 1 && text.starts_with(sign)) return 1;
  return 0;
}

std::size_t BehindBracket(std::string_view text, std::size_t start) {
  std::string closing;  // of what is open
  for (std::size_t i = start; i < text.size(); ++i) {
    const char c = text[i];
    if (IsOperatorAt(text, i)) {
      if (const std::size_t sign = OperatorSign(text.substr(i)); sign > 0) {
        i += sign - 1;
        continue;
      }
    }
    if (c == '-' && text.substr(i).starts_with("->")) {
      ++i;
    } else if (const std::size_t kind = kOpening.find(c); kind != std::string_view::npos) {
      closing += kClosing[kind];
    } else if (kClosing.find(c) != std::string_view::npos) {
      // One that is open further out closes those inside, which were none; others are no brackets.
      const std::size_t open = closing.rfind(c);
      const bool isGreaterThan = c == '>' && !closing.empty() && closing.back() != '>';
      if (open != std::string::npos && !isGreaterThan) closing.resize(open);
    }
    if (closing.empty()) return i + 1;
  }
  return text.size();
}

}  // namespace tarvo::toolkit
