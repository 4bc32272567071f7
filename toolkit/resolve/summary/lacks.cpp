#include "toolkit/resolve/summary/lacks.h"

#include <set>

namespace tarvo::toolkit {
namespace {

String OwnCopy(const String& text) { return String(text.View()); }

}  // namespace

Lacks::Count& Lacks::Add(const Lack& lack, std::uint64_t frames) {
  Count& count = all_[lack];
  count.reports = 1;
  count.frames += frames;
  return count;
}

void Lacks::AddReport(const Lacks& ofReport) {
  std::set<Place> places;
  for (const auto& [lack, count] : ofReport.all_) {
    if (CanBeAskedFor(lack, count)) places.emplace(lack.platform, lack.build);
    auto own = all_.find(lack);
    if (own == all_.end()) {
      if (all_.size() >= kMaximumLacks) continue;
      const Lack copy{OwnCopy(lack.platform), OwnCopy(lack.build), OwnCopy(lack.module),
                      lack.outcome};
      own = all_.emplace(copy, Count{.bundle = OwnCopy(count.bundle),
                                     .owner = count.owner,
                                     .reason = OwnCopy(count.reason)})
                .first;
    }
    ++own->second.reports;
    own->second.frames += count.frames;
  }
  for (const Place& place : places) {
    auto own = reports_.find(place);
    if (own == reports_.end()) {
      if (reports_.size() >= kMaximumLacks) continue;
      own = reports_.emplace(Place(OwnCopy(place.first), OwnCopy(place.second)), 0).first;
    }
    ++own->second;
  }
}

}  // namespace tarvo::toolkit
