#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "index/index_format.h"

namespace tarvo::symbolreader {

/// The blocks of an index, and where to look for one of them by the leading bits of its start: one
/// step in place of those of a search by halves that lead far, each of which waits for memory.
///
/// Of blocks that do not ascend the answers are wrong, within bounds.
class BlockTable {
 public:
  static constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();

  /// `blocks`, at most kMost, outlive this.
  explicit BlockTable(std::span<const IndexBlock> blocks) : blocks_(blocks) {
    if (blocks.empty()) return;
    const std::uint64_t width = blocks.back().start - blocks.front().start;
    const std::uint64_t buckets = blocks.size() / kInBucket;
    shift_ = std::clamp(std::countl_zero(buckets) - std::countl_zero(width), 0, kMostShift);
    last_ = width >> shift_;
    bounds_.reserve(last_ + 2);
    for (std::size_t i = 0; i < blocks.size(); ++i)
      while (bounds_.size() <= BucketOf(blocks[i].start))
        bounds_.push_back(static_cast<std::uint32_t>(i));
    bounds_.resize(last_ + 2, static_cast<std::uint32_t>(blocks.size()));
  }

  /// The last block that does not start above `address`; null when there is none. Without a branch
  /// on what is compared: which way it goes cannot be told before.
  [[nodiscard]] const IndexBlock* Find(std::uint64_t address) const {
    if (blocks_.empty()) return nullptr;
    const std::size_t bucket = BucketOf(address);
    const IndexBlock* behind = blocks_.data() + bounds_[bucket];
    std::size_t left = bounds_[bucket + 1] - bounds_[bucket];
    while (left > 1) {
      const std::size_t half = left / 2;
      behind += static_cast<std::size_t>(behind[half - 1].start <= address) * half;
      left -= half;
    }
    behind += static_cast<std::size_t>(left == 1 && behind->start <= address);
    return behind == blocks_.data() ? nullptr : behind - 1;
  }

 private:
  static constexpr std::size_t kInBucket = 4;  ///< roughly: a line of memory
  static constexpr int kMostShift = std::numeric_limits<std::uint64_t>::digits - 1;

  [[nodiscard]] std::size_t BucketOf(std::uint64_t address) const {
    if (address < blocks_.front().start) return 0;
    return std::min((address - blocks_.front().start) >> shift_, last_);
  }

  std::span<const IndexBlock> blocks_;
  int shift_ = 0;
  std::uint64_t last_ = 0;             ///< bucket
  std::vector<std::uint32_t> bounds_;  ///< of each bucket, how many blocks are in those before it
};

}  // namespace tarvo::symbolreader
