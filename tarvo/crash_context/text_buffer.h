#pragma once

#include <cstddef>
#include <cstdint>

namespace tarvo {

/// A zero-terminated text of bounded size, made without the C library; what does not fit is
/// dropped. Any context.
template <std::size_t kCapacity>
class TextBuffer {
 public:
  [[nodiscard]] const char* Text() const { return bytes_; }
  [[nodiscard]] std::size_t Size() const { return size_; }

  void Append(char byte) {
    if (size_ == kCapacity - 1) return;
    bytes_[size_++] = byte;
    bytes_[size_] = '\0';
  }
  void Append(const char* text) {
    for (; *text != '\0'; ++text) Append(*text);
  }
  void AppendDecimal(std::int64_t number) {
    if (number < 0) Append('-');
    // The smallest number has no positive counterpart.
    auto rest =
        number < 0 ? 0 - static_cast<std::uint64_t>(number) : static_cast<std::uint64_t>(number);
    char digits[20];
    int count = 0;
    do {
      digits[count++] = static_cast<char>('0' + rest % 10);
    } while ((rest /= 10) != 0);
    while (count > 0) Append(digits[--count]);
  }
  /// "0x" and all 16 digits.
  void AppendAddress(std::uint64_t number) {
    Append("0x");
    for (int shift = 60; shift >= 0; shift -= 4) Append("0123456789abcdef"[number >> shift & 15]);
  }

 private:
  char bytes_[kCapacity] = {};
  std::size_t size_ = 0;
};

}  // namespace tarvo
