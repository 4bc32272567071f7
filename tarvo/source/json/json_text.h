#pragma once

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace tarvo {

/// The most bytes that one byte of a text takes in a JSON string.
inline constexpr std::size_t kJsonBytesEach = 6;

/// The characters that stand for themselves are copied where they are asked for: most texts are
/// short, and hold no others.
namespace json_text {

/// Of a signed char those from 0x80 on are below 0x20 too.
constexpr bool StandsForItself(char c) noexcept {
  return static_cast<signed char>(c) >= 0x20 && c != '"' && c != '\\';
}

/// Whether none of the bytes is a control character, a quote, a backslash or outside of ASCII.
inline bool AllStandForThemselves(__m128i bytes) noexcept {
  const __m128i special = _mm_or_si128(
      _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')),
                   _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\'))),
      _mm_cmplt_epi8(bytes, _mm_set1_epi8(0x20)));  // signed, so those from 0x80 on too
  return _mm_movemask_epi8(special) == 0;
}

/// Copies sixteen characters, and returns whether they stand for themselves.
inline bool CopySixteen(const char* from, char* to) noexcept {
  __m128i bytes;
  std::memcpy(&bytes, from, sizeof bytes);
  std::memcpy(to, &bytes, sizeof bytes);
  return AllStandForThemselves(bytes);
}

/// The same for the first and the last of `size` characters, 8 to 16.
inline bool CopyUpToSixteen(const char* from, char* to, std::size_t size) noexcept {
  std::int64_t first = 0;
  std::int64_t last = 0;
  std::memcpy(&first, from, sizeof first);
  std::memcpy(&last, from + size - sizeof last, sizeof last);
  std::memcpy(to, &first, sizeof first);
  std::memcpy(to + size - sizeof last, &last, sizeof last);
  return AllStandForThemselves(_mm_set_epi64x(last, first));
}

/// Copies the characters at the start of `text` that stand for themselves, and returns how many
/// these are. What follows them at `to`, up to the size of `text`, may be changed.
inline std::size_t CopyPlainStart(std::string_view text, char* to) noexcept {
  constexpr std::size_t kStep = 16;
  std::size_t size = 0;
  while (text.size() - size >= kStep && CopySixteen(text.data() + size, to + size)) size += kStep;
  const std::size_t left = text.size() - size;
  if (left == 0) return size;
  // The last step goes over what was copied before.
  const std::size_t last = text.size() - kStep;
  if (left < kStep && size != 0 && CopySixteen(text.data() + last, to + last)) return text.size();
  if (left < kStep && left >= kStep / 2 && CopyUpToSixteen(text.data() + size, to + size, left))
    return text.size();
  for (; size < text.size() && StandsForItself(text[size]); ++size) to[size] = text[size];
  return size;
}

}  // namespace json_text

/// As PutJsonCharacters.
char* PutOtherCharacters(char* to, std::string_view text) noexcept;

/// Writes `text` to `to`, where kJsonBytesEach must be free for each of its bytes, as a JSON string
/// has it between its quotes: always valid UTF-8 and always escaped as JSON asks (see json_writer.h
/// for the rules). Returns the end.
inline char* PutJsonCharacters(char* to, std::string_view text) noexcept {
  const std::size_t plain = json_text::CopyPlainStart(text, to);
  if (plain == text.size()) return to + plain;
  return PutOtherCharacters(to + plain, text.substr(plain));
}

/// The start of `text`, of at most `most` bytes (4 or more), that ends where a character does, so
/// that what is behind it can be written by itself.
[[nodiscard]] std::string_view FirstCharacters(std::string_view text, std::size_t most) noexcept;

}  // namespace tarvo
