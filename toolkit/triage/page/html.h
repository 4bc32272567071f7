#pragma once

#include <concepts>
#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace tarvo::toolkit {

/// A literal with as many "@" as there are arguments. That is checked when it is compiled.
template <typename... Arguments>
struct HtmlPattern {
  std::string_view text;
  template <std::size_t size>
  consteval HtmlPattern(const char (&literal)[size])  // NOLINT: patterns are written as literals
      : text(literal, size - 1) {
    std::size_t places = 0;
    for (const char c : text) places += c == '@';
    if (places != sizeof...(Arguments)) throw "as many arguments as places";
  }
};

/// A piece of HTML in the making. Only literals of this program and other pieces get in as they
/// are: all other text is made safe.
class Html {
 public:
  /// Appends `pattern` with an argument in place of each "@": numbers in decimal (those with a
  /// fraction with two digits behind the point), other pieces as they are, texts as they may stand
  /// in an element and in a quoted attribute. Characters that cannot be seen or turn the order of
  /// what is read around stand as "\xNN".
  template <typename... Arguments>
  void Add(HtmlPattern<std::type_identity_t<Arguments>...> pattern, const Arguments&... arguments) {
    (AddUpTo(pattern.text, arguments), ...);
    text_ += pattern.text;
  }

  /// Appends a style sheet or script of this program as it is: in there nothing is escaped.
  void AddAsset(std::string_view start, std::string_view content, std::string_view end) {
    text_.append(start).append(content).append(end);
  }

  [[nodiscard]] const std::string& Text() const { return text_; }
  [[nodiscard]] std::size_t Size() const { return text_.size(); }
  [[nodiscard]] std::string Take() && { return std::move(text_); }

 private:
  template <typename Argument>
  void AddUpTo(std::string_view& pattern, const Argument& argument) {
    const std::size_t place = pattern.find('@');
    text_ += pattern.substr(0, place);
    pattern.remove_prefix(place + 1);
    if constexpr (std::same_as<Argument, Html>) {
      text_ += argument.text_;
    } else if constexpr (std::integral<Argument>) {
      text_ += std::to_string(argument);
    } else if constexpr (std::floating_point<Argument>) {
      AddNumber(argument);
    } else {
      AddText(argument);
    }
  }
  void AddNumber(double number);
  void AddText(std::string_view text);

  std::string text_;
};

}  // namespace tarvo::toolkit
