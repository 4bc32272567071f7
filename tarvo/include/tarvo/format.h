#pragma once

#include <array>
#include <charconv>
#include <chrono>
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "tarvo/error.h"
#include "tarvo/string.h"
#include "tarvo/url.h"

namespace tarvo {

/// One argument of `Format`, as text; `hexadecimal` asks for "@{x}".
template <typename T>
void AppendArgument(std::string& out, const T& argument, bool hexadecimal) {
  if constexpr (std::same_as<T, bool>) {
    out += argument ? "true" : "false";
  } else if constexpr (std::same_as<T, char>) {
    out += argument;
  } else if constexpr (std::integral<T>) {
    std::array<char, 24> digits;
    // A negative number's hexadecimal form is its two's complement, as a register dump shows it.
    const auto end = hexadecimal
                         ? std::to_chars(digits.data(), digits.data() + digits.size(),
                                         static_cast<std::make_unsigned_t<T>>(argument), 16)
                         : std::to_chars(digits.data(), digits.data() + digits.size(), argument);
    out.append(digits.data(), end.ptr);
  } else if constexpr (std::floating_point<T>) {
    std::array<char, 64> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), argument,
                                   std::chars_format::general);
    out.append(digits.data(), end.ptr);
  } else if constexpr (std::same_as<T, std::chrono::nanoseconds>) {
    const std::chrono::duration<double> seconds = argument;
    std::array<char, 32> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), seconds.count(),
                                   std::chars_format::fixed, 1);
    out.append(digits.data(), end.ptr);
    out += " s";
  } else if constexpr (std::same_as<T, Error> || std::same_as<T, Url>) {
    out += argument.Text().View();
  } else {
    out += std::string_view(argument);
  }
}

/// Puts the arguments into the placeholders of `pattern`, in order: "@" stands for an argument as
/// text (numbers in decimal), "@{x}" for an integer in lower-case hexadecimal without a prefix.
/// Arguments are not looked into, so an "@" inside one stays. A placeholder without an argument
/// stays as it is; an argument without a placeholder is left out.
///
/// Arguments: texts, integers, floats, bool, char, Url (its text), Error (its text), nanoseconds
/// (as seconds with one decimal, "12.5 s").
template <typename... Arguments>
String Format(std::string_view pattern, const Arguments&... arguments) {
  std::string out;
  out.reserve(pattern.size() + 16 * sizeof...(arguments));
  const auto fill = [&](const auto& argument) {
    const std::size_t at = pattern.find('@');
    if (at == std::string_view::npos) return;
    out += pattern.substr(0, at);
    const bool hexadecimal = pattern.substr(at + 1).starts_with("{x}");
    pattern = pattern.substr(at + (hexadecimal ? 4 : 1));
    AppendArgument(out, argument, hexadecimal);
  };
  (fill(arguments), ...);
  out += pattern;
  return String(out);
}

}  // namespace tarvo
