#include "toolkit/triage/page/html.h"

#include <array>
#include <charconv>

#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {

void Html::AddNumber(double number) {
  std::array<char, 32> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number,
                                 std::chars_format::fixed, 2);
  std::string_view text(digits.data(), static_cast<std::size_t>(end.ptr - digits.data()));
  // Pages are full of coordinates: "12.50" is as good as "12.5", and longer.
  while (text.ends_with('0')) text.remove_suffix(1);
  if (text.ends_with('.')) text.remove_suffix(1);
  text_ += text;
}

void Html::AddText(std::string_view text) {
  for (const char c : SafeText(text)) {
    switch (c) {
      case '&':
        text_ += "&amp;";
        break;
      case '<':
        text_ += "&lt;";
        break;
      case '>':
        text_ += "&gt;";
        break;
      case '"':
        text_ += "&quot;";
        break;
      case '\'':
        text_ += "&#39;";
        break;
      default:
        text_ += c;
    }
  }
}

}  // namespace tarvo::toolkit
