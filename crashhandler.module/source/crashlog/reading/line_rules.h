#pragma once

#include <optional>
#include <string_view>

#include "crashlog/reading/tokenizer.h"
#include "tarvo/result.h"
#include "tarvo/string.h"

/// How the lines of a block are cut into keys and values. Each is called with the tokenizer on the
/// identifier that starts the line, and reads the line to its end.
namespace tarvo::crashhandler {

struct KeyAndValue {
  String key;
  String value;
};

/// Which character separates key and value of a joined line.
enum class Separator {
  Equals,         ///< the first "="
  ColonOrEquals,  ///< the first ":", or the first "=" where there is no ":"
};

/// "Key = value": the identifier, the token "=", and the rest of the line.
Result<KeyAndValue> ReadEqualsLine(Tokenizer& tokens);

/// A line whose key may be several words: the identifier and the rest of the line are joined
/// without the blanks between them, so that "Computer Name= x" has the key "ComputerName". The key
/// is what stands before the separator, the value what follows it, without leading blanks. Nothing
/// when the line holds no separator.
std::optional<KeyAndValue> ReadJoinedLine(Tokenizer& tokens, Separator separator);

/// `word` and `rest`, two parts of the report in this order, without what stands between them.
[[nodiscard]] String Join(const Tokenizer& tokens, std::string_view word, std::string_view rest);

}  // namespace tarvo::crashhandler
