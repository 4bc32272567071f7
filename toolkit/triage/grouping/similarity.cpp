#include "toolkit/triage/grouping/similarity.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <string_view>
#include <vector>

namespace tarvo::toolkit {
namespace {

/// What a frame counts, by its distance from the crash.
double Weight(std::size_t place) { return 1.0 / (1.0 + 0.5 * static_cast<double>(place)); }

/// What is left of a pair's weight when its frames are shifted by so many places.
double ShiftFactor(std::size_t a, std::size_t b) {
  const auto shift = static_cast<double>(std::max(a, b) - std::min(a, b));
  return std::exp(-0.2 * shift);
}

double WholeWeight(std::size_t count) {
  double weight = 0;
  for (std::size_t place = 0; place < count; ++place) weight += Weight(place);
  return weight;
}

}  // namespace

double Similarity(std::span<const std::string> a, std::span<const std::string> b) {
  if (a.empty() || b.empty()) return 0;
  std::map<std::string_view, std::vector<std::size_t>> places;  // in `a`, last first
  for (std::size_t i = a.size(); i-- > 0;) places[a[i]].push_back(i);
  double common = 0;
  for (std::size_t j = 0; j < b.size(); ++j) {
    const auto found = places.find(b[j]);
    if (found == places.end() || found->second.empty()) continue;
    const std::size_t i = found->second.back();
    found->second.pop_back();
    common += (Weight(i) + Weight(j)) * ShiftFactor(i, j);
  }
  return common / (WholeWeight(a.size()) + WholeWeight(b.size()));
}

}  // namespace tarvo::toolkit
