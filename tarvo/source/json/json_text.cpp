#include "json/json_text.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace tarvo {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

constexpr std::uint8_t Byte(char c) noexcept { return static_cast<std::uint8_t>(c); }

/// What may follow a lead byte: how many bytes, and the range of the first of them (the others are
/// 0x80 to 0xBF). Unicode 15, table 3-7.
struct LeadByte {
  std::uint8_t first, last;
  std::uint8_t following;
  std::uint8_t lowest, highest;
};
constexpr std::array kLeadBytes = {
    LeadByte{0xC2, 0xDF, 1, 0x80, 0xBF}, LeadByte{0xE0, 0xE0, 2, 0xA0, 0xBF},
    LeadByte{0xE1, 0xEC, 2, 0x80, 0xBF}, LeadByte{0xED, 0xED, 2, 0x80, 0x9F},
    LeadByte{0xEE, 0xEF, 2, 0x80, 0xBF}, LeadByte{0xF0, 0xF0, 3, 0x90, 0xBF},
    LeadByte{0xF1, 0xF3, 3, 0x80, 0xBF}, LeadByte{0xF4, 0xF4, 3, 0x80, 0x8F},
};

/// The longest beginning of `text` that begins a character: its size, and whether it is a whole
/// one.
struct Beginning {
  std::size_t size = 1;
  bool isCharacter = false;
};

Beginning BeginningOf(std::string_view text) noexcept {
  for (const LeadByte& lead : kLeadBytes) {
    if (Byte(text[0]) < lead.first || Byte(text[0]) > lead.last) continue;
    std::size_t size = 1;
    for (; size <= lead.following && size < text.size(); ++size) {
      const std::uint8_t lowest = size == 1 ? lead.lowest : 0x80;
      const std::uint8_t highest = size == 1 ? lead.highest : 0xBF;
      if (Byte(text[size]) < lowest || Byte(text[size]) > highest) break;
    }
    return {size, size == std::size_t{lead.following} + 1};
  }
  return {};
}

char* PutEscape(char* to, char c) noexcept {
  constexpr std::string_view kNamed = "\"\\\b\f\n\r\t";
  constexpr std::string_view kNames = "\"\\bfnrt";
  constexpr std::string_view kDigits = "0123456789abcdef";
  *to++ = '\\';
  if (const std::size_t at = kNamed.find(c); at != std::string_view::npos) {
    *to++ = kNames[at];
    return to;
  }
  for (const char part : {'u', '0', '0', kDigits[Byte(c) >> 4], kDigits[Byte(c) & 0xF]})
    *to++ = part;
  return to;
}

char* Append(char* to, std::string_view text) noexcept {
  std::memcpy(to, text.data(), text.size());
  return to + text.size();
}

}  // namespace

char* PutOtherCharacters(char* to, std::string_view text) noexcept {
  while (!text.empty()) {
    std::size_t taken = json_text::CopyPlainStart(text, to);
    if (taken != 0) {
      to += taken;
    } else if (Byte(text[0]) < 0x80) {
      to = PutEscape(to, text[0]);
      taken = 1;
    } else {
      const Beginning beginning = BeginningOf(text);
      to = Append(to, beginning.isCharacter ? text.substr(0, beginning.size) : kReplacement);
      taken = beginning.size;
    }
    text.remove_prefix(taken);
  }
  return to;
}

std::string_view FirstCharacters(std::string_view text, std::size_t most) noexcept {
  if (text.size() <= most) return text;
  // No character has more than three bytes behind its first one.
  for (std::size_t size = most; size + 4 > most && size != 0; --size)
    if ((Byte(text[size]) & 0xC0) != 0x80) return text.substr(0, size);
  return text.substr(0, most);
}

}  // namespace tarvo
