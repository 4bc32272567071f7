#pragma once

#include <cstddef>
#include <string_view>

namespace tarvo {

/// The most bytes that one byte of a text takes in a JSON string.
inline constexpr std::size_t kJsonBytesEach = 6;

/// Writes `text` to `to`, where kJsonBytesEach must be free for each of its bytes, as a JSON string
/// has it between its quotes: always valid UTF-8 and always escaped as JSON asks (see json_writer.h
/// for the rules). Returns the end.
char* PutJsonCharacters(char* to, std::string_view text) noexcept;

/// The start of `text`, of at most `most` bytes (4 or more), that ends where a character does, so
/// that what is behind it can be written by itself.
[[nodiscard]] std::string_view FirstCharacters(std::string_view text, std::size_t most) noexcept;

}  // namespace tarvo
