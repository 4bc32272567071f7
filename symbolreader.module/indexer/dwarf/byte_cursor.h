#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

namespace tarvo::symbolreader {

/// Reads little-endian numbers of a section one after the other. What reaches behind the end is 0,
/// and from then on the cursor is at the end and has failed.
class ByteCursor {
 public:
  ByteCursor(std::string_view bytes, std::uint64_t offset)
      : begin_(bytes.data()),
        at_(begin_ + (offset < bytes.size() ? offset : bytes.size())),
        end_(begin_ + bytes.size()),
        hasFailed_(offset > bytes.size()) {}

  [[nodiscard]] std::uint64_t Offset() const { return static_cast<std::uint64_t>(at_ - begin_); }
  [[nodiscard]] bool HasFailed() const { return hasFailed_; }

  void Fail() {
    at_ = end_;
    hasFailed_ = true;
  }

  void Skip(std::uint64_t size) {
    if (size > Left()) return Fail();
    at_ += size;
  }

  /// A number of `size` bytes, at most 8.
  std::uint64_t Read(std::size_t size) {
    std::uint64_t number = 0;
    if (size > Left()) {
      Fail();
      return 0;
    }
    std::memcpy(&number, at_, size);
    at_ += size;
    return number;
  }

  std::uint64_t ReadLeb() {
    std::uint64_t number = 0;
    for (unsigned shift = 0; at_ != end_; shift += 7) {
      const auto byte = static_cast<std::uint8_t>(*at_++);
      if (shift < 64) number |= std::uint64_t{byte & 0x7FU} << shift;
      if (byte < 0x80) return number;
    }
    Fail();
    return 0;
  }

  void SkipLeb() {
    while (at_ != end_)
      if (static_cast<std::uint8_t>(*at_++) < 0x80) return;
    Fail();
  }

  /// The bytes up to the next NUL, which is passed.
  std::string_view ReadText() {
    const void* end = at_ == end_ ? nullptr : std::memchr(at_, 0, Left());
    if (end == nullptr) {
      Fail();
      return {};
    }
    const std::string_view text(at_, static_cast<const char*>(end));
    at_ += text.size() + 1;
    return text;
  }

 private:
  [[nodiscard]] std::size_t Left() const { return static_cast<std::size_t>(end_ - at_); }
  const char* begin_;
  const char* at_;
  const char* end_;
  bool hasFailed_;
};

}  // namespace tarvo::symbolreader
