#pragma once

#include <string>
#include <string_view>

namespace tarvo::toolkit {

/// What a piece of text is, as a terminal shows it: the parameters of its escape sequence.
enum class Style { Plain, Title, Alarm, Module, Place, Quiet };

/// Puts escape sequences around texts, or none where colours are off.
class Painter {
 public:
  explicit Painter(bool isColoured) : isColoured_(isColoured) {}

  [[nodiscard]] std::string operator()(Style style, std::string_view text) const {
    constexpr const char* kParameters[] = {"", "1", "1;31", "36", "32", "2"};
    const char* parameters = kParameters[static_cast<std::size_t>(style)];
    if (!isColoured_ || text.empty() || *parameters == '\0') return std::string(text);
    return "\x1b[" + std::string(parameters) + 'm' + std::string(text) + "\x1b[0m";
  }

 private:
  bool isColoured_;
};

}  // namespace tarvo::toolkit
