#include "crashlog/reading/line_rules.h"

#include <cstring>
#include <utility>

#include "crashlog/base/text.h"

namespace tarvo::crashhandler {
namespace {

std::size_t FindSeparator(std::string_view line, Separator separator) noexcept {
  if (separator == Separator::ColonOrEquals) {
    const std::size_t colon = line.find(':');
    if (colon != std::string_view::npos) return colon;
  }
  return line.find('=');
}

}  // namespace

Result<KeyAndValue> ReadEqualsLine(Tokenizer& tokens) {
  String key = tokens.Share(tokens.Text());
  if (Result<void> equals = tokens.ReadNext(TokenKind::Equals); !equals) return equals.GetError();
  return KeyAndValue{std::move(key), tokens.Share(tokens.RestOfLine())};
}

std::optional<KeyAndValue> ReadJoinedLine(Tokenizer& tokens, Separator separator) {
  const std::string_view word = tokens.Text();
  const std::string_view rest = tokens.RestOfLine();
  const std::size_t at = FindSeparator(rest, separator);
  if (at == std::string_view::npos) return std::nullopt;
  return KeyAndValue{Join(tokens, word, rest.substr(0, at)),
                     tokens.Share(SkipBlanks(rest.substr(at + 1)))};
}

String Join(const Tokenizer& tokens, std::string_view word, std::string_view rest) {
  if (rest.empty()) return tokens.Share(word);
  const std::size_t size = word.size() + rest.size();
  if (word.data() + word.size() == rest.data()) return tokens.Share({word.data(), size});
  return String::Build(size, [&](char* to) {
    std::memcpy(to, word.data(), word.size());
    std::memcpy(to + word.size(), rest.data(), rest.size());
    return size;
  });
}

}  // namespace tarvo::crashhandler
