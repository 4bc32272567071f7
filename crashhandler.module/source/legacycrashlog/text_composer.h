#pragma once

#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace tarvo::crashhandler {

/// Composes text for a stream in memory, which takes a tenth of the time of fprintf: the thousands
/// of frames and registers of a report are nearly all of it. What is composed goes to the stream
/// when the memory is full, and at the end. Crashed process.
class TextComposer {
 public:
  explicit TextComposer(std::FILE* out) : out_(out) {}
  ~TextComposer() { Write(); }
  TextComposer(const TextComposer&) = delete;
  TextComposer& operator=(const TextComposer&) = delete;

  void Append(std::string_view text) {
    if (text.size() > sizeof(bytes_) - size_) Write();
    if (text.size() > sizeof(bytes_)) {
      fwrite_unlocked(text.data(), 1, text.size(), out_);
      return;
    }
    std::memcpy(bytes_ + size_, text.data(), text.size());
    size_ += text.size();
  }
  /// The last `digits` digits of `number`, 16 at most.
  void AppendHexadecimal(std::uint64_t number, int digits) {
    char text[16];
    for (int i = digits; i > 0; number >>= 4) text[--i] = "0123456789abcdef"[number & 15];
    Append({text, static_cast<std::size_t>(digits)});
  }
  /// "0x" and as many digits as it has.
  void AppendHexadecimalNumber(std::uint64_t number) {
    Append("0x");
    AppendHexadecimal(number, (static_cast<int>(std::bit_width(number | 1)) + 3) / 4);
  }
  /// As printf's %p has it.
  void AppendPointer(std::uint64_t address) {
    if (address == 0) {
      Append("(nil)");
    } else {
      AppendHexadecimalNumber(address);
    }
  }

 private:
  void Write() {
    fwrite_unlocked(bytes_, 1, size_, out_);
    size_ = 0;
  }

  std::FILE* out_;
  std::size_t size_ = 0;
  char bytes_[4096];
};

}  // namespace tarvo::crashhandler
