#include "toolkit/triage/result/similar_groups.h"

#include <algorithm>
#include <map>
#include <set>
#include <string_view>

#include "toolkit/triage/grouping/fingerprint.h"
#include "toolkit/triage/grouping/similarity.h"

namespace tarvo::toolkit {
namespace {

constexpr std::size_t kMostSimilar = 5;
/// So many frames from the crash on lead to others; further out all stacks are alike.
constexpr std::size_t kLeadingFrames = 8;
/// A frame of more groups than that leads to none: what is everywhere tells nothing, and comparing
/// everything with everything would take for ever.
constexpr std::size_t kMostGroupsOfFrame = 50;

using Sequence = std::vector<std::string>;

class Comparison {
 public:
  explicit Comparison(const std::vector<TriageGroup>& groups) {
    for (const TriageGroup& group : groups) {
      const CrashStack none;
      const CrashStack& stack = group.variants.empty() ? none : group.variants[0].stack;
      sequences_.push_back(MakeFingerprint(stack, group.crashClass).sequence);
    }
    for (std::size_t i = 0; i < sequences_.size(); ++i)
      for (const std::string_view key : Leading(i)) groupsOf_[key].push_back(i);
  }

  /// The indices of the groups most similar to that of `index`, the most similar first.
  std::vector<std::size_t> SimilarTo(std::size_t index) {
    std::set<std::size_t> candidates;
    for (const std::string_view key : Leading(index)) {
      const auto& groups = groupsOf_[key];
      if (groups.size() <= kMostGroupsOfFrame) candidates.insert(groups.begin(), groups.end());
    }
    candidates.erase(index);
    std::vector<std::pair<double, std::size_t>> alike;
    for (const std::size_t other : candidates)
      if (const double likeness = Similarity(sequences_[index], sequences_[other]);
          likeness >= kAlike)
        alike.emplace_back(-likeness, other);
    std::ranges::sort(alike);
    alike.resize(std::min(alike.size(), kMostSimilar));
    std::vector<std::size_t> others;
    for (const auto& [likeness, other] : alike) others.push_back(other);
    return others;
  }

 private:
  [[nodiscard]] std::set<std::string_view> Leading(std::size_t index) const {
    const Sequence& sequence = sequences_[index];
    return {sequence.begin(), sequence.begin() + static_cast<std::ptrdiff_t>(
                                                     std::min(sequence.size(), kLeadingFrames))};
  }

  std::vector<Sequence> sequences_{};
  std::map<std::string_view, std::vector<std::size_t>> groupsOf_{};
};

}  // namespace

void SetSimilar(std::vector<TriageGroup>& groups) {
  Comparison comparison(groups);
  for (std::size_t i = 0; i < groups.size(); ++i)
    for (const std::size_t other : comparison.SimilarTo(i))
      groups[i].similarTo.push_back(groups[other].id);
}

}  // namespace tarvo::toolkit
