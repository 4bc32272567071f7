#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "crashlog/reading/tokenizer.h"
#include "tarvo/result.h"

/// The numbers of crash reports, all unsigned 64-bit.
namespace tarvo::crashhandler {

/// All of `digits` in `base`; nothing when there are none, others among them, or too many.
[[nodiscard]] std::optional<std::uint64_t> ParseDigits(std::string_view digits, int base) noexcept;

// The conversions below take blanks around the number. They fail with a conversion error that names
// the text, what was expected and the line on which `tokens` stands.

/// A thread number: decimal digits.
Result<std::uint64_t> ToThreadNumber(std::string_view text, const Tokenizer& tokens);
/// An address: "0x" and hexadecimal digits, or "(nil)", which is how the C library prints zero with
/// "%p" (glibc, stdio-common/vfprintf-process-arg.c).
Result<std::uint64_t> ToAddress(std::string_view text, const Tokenizer& tokens);
/// A size: decimal digits, or "0x" and hexadecimal digits, as regenerated reports have it.
Result<std::uint64_t> ToSize(std::string_view text, const Tokenizer& tokens);

}  // namespace tarvo::crashhandler
