#include "command/printable.h"

#include <cstddef>
#include <cstdint>

namespace tarvo::command {
namespace {

/// The size of the character of UTF-8 at the start of `text`, by the table of well-formed byte
/// sequences in the Unicode standard (3.9, table 3-7); 0 when there is none.
std::size_t CharacterSize(std::string_view text) noexcept {
  const auto byte = [&](std::size_t i) {
    return i < text.size() ? static_cast<std::uint8_t>(text[i]) : 0U;
  };
  const auto continues = [&](std::size_t i) { return (byte(i) & 0xC0U) == 0x80; };
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first <= 0xDF) return continues(1) ? 2 : 0;
  const unsigned low = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
  const unsigned high = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
  const bool second = byte(1) >= low && byte(1) <= high;
  if (first >= 0xE0 && first <= 0xEF) return second && continues(2) ? 3 : 0;
  if (first >= 0xF0 && first <= 0xF4) return second && continues(2) && continues(3) ? 4 : 0;
  return 0;
}

/// Whether a terminal would do more with a character than to show it: control characters, and the
/// marks that turn or hide the text around them (U+061C, U+200B to U+200F, U+202A to U+202E,
/// U+2028, U+2029, U+2060 to U+206F, U+FEFF).
bool IsActive(std::string_view character) noexcept {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(character[i]); };
  if (character.size() == 1) return byte(0) < 0x20 || byte(0) == 0x7F;
  if (character.size() == 2) return (byte(0) == 0xC2 && byte(1) < 0xA0) || character == "\u061C";
  if (character.size() != 3) return false;
  if (byte(0) == 0xE2 && byte(1) == 0x80)
    return (byte(2) >= 0x8B && byte(2) <= 0x8F) || (byte(2) >= 0xA8 && byte(2) <= 0xAE);
  if (byte(0) == 0xE2 && byte(1) == 0x81) return byte(2) >= 0xA0 && byte(2) <= 0xAF;
  return character == "\uFEFF";
}

}  // namespace

std::string Printable(std::string_view text) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string printable;
  printable.reserve(text.size());
  while (!text.empty()) {
    const std::size_t size = CharacterSize(text);
    const std::string_view character = text.substr(0, size == 0 ? 1 : size);
    text.remove_prefix(character.size());
    if (size != 0 && !IsActive(character)) {
      printable += character;
      continue;
    }
    for (const char c : character) {
      const auto byte = static_cast<std::uint8_t>(c);
      printable += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return printable;
}

}  // namespace tarvo::command
