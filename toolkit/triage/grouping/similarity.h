#pragma once

#include <span>
#include <string>

namespace tarvo::toolkit {

/// From here on two groups are "possibly the same".
inline constexpr double kAlike = 0.6;

/// How alike two sequences of frame keys are, innermost first: 0 nothing in common, 1 the same.
///
/// Equal keys are paired in their order, as in alignments by hashing, which take linear time. A
/// frame counts the less the further it is from the crash, and a pair the less the further its
/// frames are shifted against each other.
[[nodiscard]] double Similarity(std::span<const std::string> a, std::span<const std::string> b);

}  // namespace tarvo::toolkit
