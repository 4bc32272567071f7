#pragma once

#include <source_location>
#include <string_view>

#include "crashlog/reading/tokenizer.h"
#include "tarvo/error.h"
#include "tarvo/format.h"
#include "tarvo/string.h"

namespace tarvo::crashhandler {

/// `text` as messages show it: cut where it is longer than 256 bytes.
[[nodiscard]] String CutForMessage(std::string_view text);

/// The current token as messages show it.
[[nodiscard]] String TokenForMessage(const Tokenizer& tokens);

/// What the reader did not expect at the current token: `pattern` with the token's line and
/// `detail` in its placeholders.
[[nodiscard]] Error ErrorInLine(std::string_view pattern, const Tokenizer& tokens,
                                std::string_view detail = {},
                                std::source_location where = std::source_location::current());

}  // namespace tarvo::crashhandler
