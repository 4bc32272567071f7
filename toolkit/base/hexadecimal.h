#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace tarvo::toolkit {

/// Two lower-case digits for each byte.
[[nodiscard]] inline std::string Hexadecimal(std::span<const std::uint8_t> bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const unsigned byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace tarvo::toolkit
