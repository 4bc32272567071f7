#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <span>

namespace tarvo::symbolreader {

inline constexpr std::uint64_t kNoAddress = std::numeric_limits<std::uint64_t>::max();

/// Addresses [start, end).
struct AddressInterval {
  std::uint64_t start = 0;
  std::uint64_t end = 0;
};

/// Walks forward through disjoint ranges in ascending order. Range has `start` and `end`.
template <typename Range>
class RangeCursor {
 public:
  explicit RangeCursor(std::span<const Range> ranges) : ranges_(ranges) {}

  struct Step {
    const Range* range = nullptr;    ///< the one at the address; null in a gap
    std::uint64_t end = kNoAddress;  ///< up to where this holds
  };

  /// What is at `address`, which must not be less than at the call before.
  Step At(std::uint64_t address) {
    if (!ranges_.empty() && ranges_.front().end <= address) Advance(address);
    if (ranges_.empty()) return {};
    const Range& range = ranges_.front();
    return range.start > address ? Step{nullptr, range.start} : Step{&range, range.end};
  }

 private:
  /// Mostly the next range is the one; a jump over many must not step through them all.
  void Advance(std::uint64_t address) {
    ranges_ = ranges_.subspan(1);
    if (ranges_.empty() || ranges_.front().end > address) return;
    const auto behind = std::ranges::partition_point(
        ranges_, [&](const Range& range) { return range.end <= address; });
    ranges_ = ranges_.subspan(static_cast<std::size_t>(behind - ranges_.begin()));
  }

  std::span<const Range> ranges_;
};

}  // namespace tarvo::symbolreader
