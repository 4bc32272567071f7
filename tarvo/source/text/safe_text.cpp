#include "text/safe_text.h"

#include <algorithm>
#include <array>

namespace tarvo {
namespace {

struct Range {
  char32_t first;
  char32_t last;
};

/// Control characters; of bidirectional text the marks, embeddings, overrides and isolates; line
/// and paragraph separators; the byte order mark; tags, which nobody sees.
constexpr std::array kUnsafe = {
    Range{0x00, 0x1f},     Range{0x7f, 0x9f},     Range{0x61c, 0x61c},   Range{0x200e, 0x200f},
    Range{0x2028, 0x202e}, Range{0x2066, 0x2069}, Range{0xfeff, 0xfeff}, Range{0xe0000, 0xe0fff}};

/// Characters that take two columns: the blocks that are wide as a whole.
constexpr std::array kWide = {
    Range{0x1100, 0x115f},   Range{0x2e80, 0x303e},   Range{0x3041, 0xa4cf},  Range{0xac00, 0xd7a3},
    Range{0xf900, 0xfaff},   Range{0xfe30, 0xfe6f},   Range{0xff00, 0xff60},  Range{0xffe0, 0xffe6},
    Range{0x1f300, 0x1f64f}, Range{0x1f900, 0x1f9ff}, Range{0x20000, 0x3fffd}};

/// Characters that take none: combining marks, joiners and variation selectors.
constexpr std::array kNarrow = {Range{0x300, 0x36f},   Range{0x1ab0, 0x1aff},
                                Range{0x200b, 0x200d}, Range{0x20d0, 0x20ff},
                                Range{0xfe00, 0xfe0f}, Range{0xfe20, 0xfe2f}};

template <typename Ranges>
bool IsIn(const Ranges& ranges, char32_t character) {
  return std::ranges::any_of(ranges,
                             [=](Range r) { return r.first <= character && character <= r.last; });
}

std::size_t Width(char32_t character) {
  if (character < kNarrow.front().first) return 1;
  if (IsIn(kNarrow, character)) return 0;
  return IsIn(kWide, character) ? 2 : 1;
}

void AppendEscaped(std::string& out, std::string_view bytes) {
  constexpr const char* kDigits = "0123456789abcdef";
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    out += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
  }
}

}  // namespace

std::size_t ReadCharacter(std::string_view text, char32_t& character) {
  /// The least character that needs so many bytes.
  constexpr std::array<char32_t, 5> kLeast = {0, 0, 0x80, 0x800, 0x10000};
  const auto first = static_cast<unsigned char>(text[0]);
  character = first;
  if (first < 0x80) return 1;
  const std::size_t size = first < 0xc0   ? 0
                           : first < 0xe0 ? 2
                           : first < 0xf0 ? 3
                           : first < 0xf8 ? 4
                                          : 0;
  if (size == 0 || text.size() < size) return 0;
  character = first & (0x7fU >> size);
  for (std::size_t i = 1; i < size; ++i) {
    const auto next = static_cast<unsigned char>(text[i]);
    if ((next & 0xc0) != 0x80) return 0;
    character = character << 6 | (next & 0x3f);
  }
  const bool isSurrogate = character >= 0xd800 && character <= 0xdfff;
  return character < kLeast[size] || character > 0x10ffff || isSurrogate ? 0 : size;
}

std::string SafeText(std::string_view text) {
  std::string safe;
  safe.reserve(text.size());
  char32_t character = 0;
  while (!text.empty()) {
    const std::size_t size = ReadCharacter(text, character);
    const std::string_view bytes = text.substr(0, std::max<std::size_t>(size, 1));
    const bool isPlain = size == 1 && character >= 0x20 && character < 0x7f;
    if (!isPlain && (size == 0 || IsIn(kUnsafe, character))) {
      AppendEscaped(safe, bytes);
    } else {
      safe += bytes;
    }
    text.remove_prefix(bytes.size());
  }
  return safe;
}

std::size_t TextWidth(std::string_view text) {
  std::size_t width = 0;
  char32_t character = 0;
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t size = ReadCharacter(text.substr(i), character);
    width += size == 0 ? 1 : Width(character);
    i += std::max<std::size_t>(size, 1);
  }
  return width;
}

std::string Shortened(std::string_view text, std::size_t width, bool keepEnd) {
  std::size_t left = TextWidth(text);
  if (left <= width) return std::string(text);
  // What is dropped from the front, or kept there.
  const std::size_t keptFront = width - 1;
  std::size_t used = 0, i = 0;
  char32_t character = 0;
  for (; i < text.size();) {
    const std::size_t size = std::max<std::size_t>(ReadCharacter(text.substr(i), character), 1);
    const std::size_t columns = Width(character);
    if (keepEnd ? left <= width - 1 : used + columns > keptFront) break;
    used += columns;
    left -= columns;
    i += size;
  }
  return keepEnd ? "…" + std::string(text.substr(i)) : std::string(text.substr(0, i)) + "…";
}

}  // namespace tarvo
