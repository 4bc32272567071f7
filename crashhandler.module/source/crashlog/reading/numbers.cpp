#include "crashlog/reading/numbers.h"

#include <charconv>

#include "crashlog/base/source.h"
#include "crashlog/base/text.h"
#include "crashlog/reading/messages.h"
#include "tarvo/crash_report.h"

namespace tarvo::crashhandler {
namespace {

Result<std::uint64_t> Converted(std::optional<std::uint64_t> number, std::string_view text,
                                std::string_view expected, const Tokenizer& tokens) {
  if (number) return *number;
  return Error::Conversion(kSource.Here(),
                           Format("Could not convert \"@\" in line @ into a number: expected @ of "
                                  "at most 64 bits",
                                  CutForMessage(text), tokens.Line(), expected));
}

}  // namespace

std::optional<std::uint64_t> ParseDigits(std::string_view digits, int base) noexcept {
  std::uint64_t number = 0;
  const char* end = digits.data() + digits.size();
  const auto [stop, status] = std::from_chars(digits.data(), end, number, base);
  if (status != std::errc{} || stop != end) return std::nullopt;
  return number;
}

Result<std::uint64_t> ToThreadNumber(std::string_view text, const Tokenizer& tokens) {
  return Converted(ParseDigits(Trim(text), 10), text, "decimal digits", tokens);
}

Result<std::uint64_t> ToAddress(std::string_view text, const Tokenizer& tokens) {
  const std::string_view number = Trim(text);
  if (number == crash_report::kNull) return std::uint64_t{0};
  return Converted(number.starts_with(crash_report::kHexadecimal)
                       ? ParseDigits(number.substr(crash_report::kHexadecimal.size()), 16)
                       : std::nullopt,
                   text, "\"0x\" and hexadecimal digits", tokens);
}

Result<std::uint64_t> ToSize(std::string_view text, const Tokenizer& tokens) {
  const std::string_view number = Trim(text);
  if (number.starts_with(crash_report::kHexadecimal)) return ToAddress(number, tokens);
  return Converted(ParseDigits(number, 10), text, "decimal digits", tokens);
}

}  // namespace tarvo::crashhandler
