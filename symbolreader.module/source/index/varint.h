#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>

/// The numbers of the index format.
namespace tarvo::symbolreader {

inline void AppendVarint(std::string& bytes, std::uint64_t number) {
  for (; number >= 0x80; number >>= 7) bytes += static_cast<char>(number | 0x80);
  bytes += static_cast<char>(number);
}

inline void AppendSignedVarint(std::string& bytes, std::int64_t number) {
  const auto bits = static_cast<std::uint64_t>(number);
  AppendVarint(bytes, (bits << 1) ^ static_cast<std::uint64_t>(number >> 63));
}

inline void AppendText(std::string& bytes, const std::string& text) {
  AppendVarint(bytes, text.size());
  bytes += text;
}

/// Reads numbers one after the other; behind the end all are 0.
class VarintReader {
 public:
  explicit VarintReader(std::span<const std::uint8_t> bytes)
      : at_(bytes.data()), end_(bytes.data() + bytes.size()) {}

  std::uint64_t Read() {
    if (at_ != end_ && *at_ < 0x80) return *at_++;  // nearly all numbers are small
    std::uint64_t number = 0;
    for (unsigned shift = 0; at_ != end_ && shift < 64; shift += 7) {
      const std::uint8_t byte = *at_++;
      number |= std::uint64_t{byte & 0x7FU} << shift;
      if (byte < 0x80) break;
    }
    return number;
  }

  /// Has memory fetched that is read soon: that of a block is next to never near.
  void FetchAhead() const noexcept {
    constexpr std::ptrdiff_t kLine = 64;
    for (std::ptrdiff_t ahead = 0; ahead != 3 * kLine; ahead += kLine)
      if (ahead < end_ - at_) __builtin_prefetch(at_ + ahead);
  }

  /// Reads as many numbers as `numbers` takes, if each of them is one byte.
  template <std::size_t kCount>
  bool ReadSmall(std::array<std::uint8_t, kCount>& numbers) {
    if (static_cast<std::size_t>(end_ - at_) < kCount) return false;
    std::memcpy(numbers.data(), at_, kCount);
    std::uint8_t all = 0;
    for (const std::uint8_t number : numbers) all |= number;
    if (all >= 0x80) return false;
    at_ += kCount;
    return true;
  }

  /// A number, and so many bytes behind it, as far as there are any.
  std::string ReadText() {
    const std::uint64_t size = std::min(Read(), static_cast<std::uint64_t>(end_ - at_));
    std::string text(at_, at_ + size);
    at_ += size;
    return text;
  }

  [[nodiscard]] bool IsAtEnd() const { return at_ == end_; }

  std::int64_t ReadSigned() { return Signed(Read()); }

  /// What AppendSignedVarint has written as `bits`.
  static constexpr std::int64_t Signed(std::uint64_t bits) {
    return static_cast<std::int64_t>((bits >> 1) ^ (0 - (bits & 1)));
  }

 private:
  const std::uint8_t* at_;
  const std::uint8_t* end_;
};

}  // namespace tarvo::symbolreader
