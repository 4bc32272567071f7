#pragma once

#include <cstddef>
#include <string_view>

namespace tarvo::toolkit {

/// The index behind the bracket that closes the one at `text[start]`, one of "<([{`" ("`" is closed
/// by "'"); the length of `text` where it is not closed. Operators among what is between ("->",
/// "operator<") are no brackets, and those of another kind inside are passed over as a whole.
[[nodiscard]] std::size_t BehindBracket(std::string_view text, std::size_t start);

/// How many characters of `text` are the sign of an operator, where "operator" stood in front of
/// it: "()", "<<", "->*" and so on; 0 where it is a word (a type, "new", "co_await").
[[nodiscard]] std::size_t OperatorSign(std::string_view text);

}  // namespace tarvo::toolkit
