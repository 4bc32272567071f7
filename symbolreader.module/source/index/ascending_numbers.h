#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

namespace tarvo::symbolreader {

/// Numbers that ascend, and where to look for one of them by its leading bits: one step in place of
/// those of a search by halves that lead far, each of which waits for memory.
///
/// Of numbers that do not ascend the answers are wrong, within bounds.
class AscendingNumbers {
 public:
  static constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();

  /// `numbers`, at most kMost, outlive this.
  explicit AscendingNumbers(std::span<const std::uint64_t> numbers) : numbers_(numbers) {
    if (numbers.empty()) return;
    const std::uint64_t width = numbers.back() - numbers.front();
    const std::uint64_t buckets = numbers.size() / kInBucket;
    shift_ = std::clamp(std::countl_zero(buckets) - std::countl_zero(width), 0, kMostShift);
    last_ = width >> shift_;
    bounds_.reserve(last_ + 2);
    for (std::size_t i = 0; i < numbers.size(); ++i)
      while (bounds_.size() <= BucketOf(numbers[i]))
        bounds_.push_back(static_cast<std::uint32_t>(i));
    bounds_.resize(last_ + 2, static_cast<std::uint32_t>(numbers.size()));
  }

  [[nodiscard]] std::uint64_t operator[](std::size_t index) const { return numbers_[index]; }

  /// Where CountUpTo begins to look.
  [[nodiscard]] std::size_t Near(std::uint64_t number) const {
    return numbers_.empty() ? 0 : bounds_[BucketOf(number)];
  }

  /// How many are not above `number`. Without a branch on what is compared: which way it goes
  /// cannot be told before.
  [[nodiscard]] std::size_t CountUpTo(std::uint64_t number) const {
    if (numbers_.empty()) return 0;
    const std::size_t bucket = BucketOf(number);
    const std::size_t start = bounds_[bucket];
    const std::uint64_t* first = numbers_.data() + start;
    std::size_t left = bounds_[bucket + 1] - start;
    while (left > 1) {
      const std::size_t half = left / 2;
      first += static_cast<std::size_t>(first[half - 1] <= number) * half;
      left -= half;
    }
    const auto before = static_cast<std::size_t>(first - numbers_.data());
    return before + static_cast<std::size_t>(left == 1 && *first <= number);
  }

 private:
  static constexpr std::size_t kInBucket = 4;  ///< roughly: half a line of memory
  static constexpr int kMostShift = std::numeric_limits<std::uint64_t>::digits - 1;

  [[nodiscard]] std::size_t BucketOf(std::uint64_t number) const {
    if (number < numbers_.front()) return 0;
    return std::min((number - numbers_.front()) >> shift_, last_);
  }

  std::span<const std::uint64_t> numbers_;
  int shift_ = 0;
  std::uint64_t last_ = 0;             ///< bucket
  std::vector<std::uint32_t> bounds_;  ///< of each bucket, how many numbers are in those before it
};

}  // namespace tarvo::symbolreader
