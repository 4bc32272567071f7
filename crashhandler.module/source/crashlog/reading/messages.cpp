#include "crashlog/reading/messages.h"

#include <string>

#include "crashlog/base/source.h"

namespace tarvo::crashhandler {
namespace {

constexpr std::size_t kMaximumTextInMessage = 256;

}  // namespace

String CutForMessage(std::string_view text) {
  if (text.size() <= kMaximumTextInMessage) return text;
  return Format("@…", text.substr(0, kMaximumTextInMessage));
}

String TokenForMessage(const Tokenizer& tokens) {
  return tokens.Kind() == TokenKind::EndOfFile ? String(KindName(tokens.Kind()))
                                               : CutForMessage(tokens.Text());
}

Error ErrorInLine(std::string_view pattern, const Tokenizer& tokens, std::string_view detail,
                  std::source_location where) {
  return Error::Plain(kSource.Here(where), Format(pattern, tokens.Line(), detail));
}

}  // namespace tarvo::crashhandler
