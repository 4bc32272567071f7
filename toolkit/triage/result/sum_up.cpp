#include "toolkit/triage/result/sum_up.h"

#include <algorithm>
#include <iterator>
#include <map>

#include "toolkit/triage/result/group_marks.h"
#include "toolkit/triage/result/similar_groups.h"

namespace tarvo::toolkit {
namespace {

using Counts = std::map<std::string, std::size_t>;

/// A group while its reports are counted.
struct Counting {
  TriageGroup group{};
  std::map<std::string, StoredVariant> variants{};
  Counts variantCounts{}, builds{}, systems{}, missing{};
  std::map<std::pair<std::chrono::sys_days, std::string>, std::size_t> days{};
};

std::vector<NamedCount> MostFrequentFirst(const Counts& counts) {
  std::vector<NamedCount> sorted;
  for (const auto& [name, count] : counts) sorted.push_back({name, count});
  std::ranges::stable_sort(sorted, std::ranges::greater{}, &NamedCount::count);
  return sorted;
}

void Count(StoredReport& report, Counting& counting) {
  TriageGroup& group = counting.group;
  ++group.count;
  ++counting.variantCounts[report.variant];
  ++counting.builds[report.build];
  ++counting.systems[report.system];
  for (const MissingSymbols& missing : report.missing)
    counting
        .missing[missing.build.empty() ? missing.module : missing.module + " " + missing.build] +=
        missing.frames;
  std::ranges::move(report.paths, std::back_inserter(group.reports));
  if (!report.time) return;
  group.first = group.first ? std::min(*group.first, *report.time) : *report.time;
  group.last = group.last ? std::max(*group.last, *report.time) : *report.time;
  ++counting.days[{std::chrono::floor<std::chrono::days>(*report.time), report.build}];
}

TriageVariant MakeVariant(StoredVariant stored, std::size_t count) {
  return {.id = std::move(stored.id),
          .frames = std::move(stored.frames),
          .count = count,
          .stack = std::move(stored.stack),
          .namedAfter = stored.culprit,
          .furtherFrames = stored.furtherFrames};
}

TriageGroup Finish(Counting&& counting, const std::vector<std::string>& builds) {
  TriageGroup group = std::move(counting.group);
  std::ranges::sort(group.reports);
  for (const std::string& build : builds)
    if (const auto known = counting.builds.find(build); known != counting.builds.end())
      group.builds.push_back({build, known->second});
  group.systems = MostFrequentFirst(counting.systems);
  group.missing = MostFrequentFirst(counting.missing);
  for (const auto& [day, count] : counting.days)
    group.days.push_back({day.first, day.second, count});
  for (const auto& [id, count] : MostFrequentFirst(counting.variantCounts))
    group.variants.push_back(MakeVariant(std::move(counting.variants[id]), count));
  return group;
}

}  // namespace

TriageResult MakeTriageResult(StoredCrashes crashes, const std::set<std::string>& added) {
  std::map<std::string, Counting> groups;
  for (StoredGroup& stored : crashes.groups) {
    TriageGroup& group = groups[stored.id].group;
    group = {.id = stored.id,
             .formerIds = std::move(stored.formerIds),
             .signature = std::move(stored.signature),
             .crashClass = std::move(stored.crashClass),
             .isNotStored = added.contains(stored.id)};
  }
  std::map<std::string, Counting*> ofVariant;
  for (StoredVariant& variant : crashes.variants) {
    Counting& counting = groups[variant.group];
    ofVariant[variant.id] = &counting;
    counting.variants[variant.id] = std::move(variant);
  }
  TriageResult result{.builds = BuildsByAge(crashes.reports), .reports = crashes.reports.size()};
  for (StoredReport& report : crashes.reports)
    if (const auto counting = ofVariant.find(report.variant); counting != ofVariant.end())
      Count(report, *counting->second);
  for (auto& [id, counting] : groups)
    result.groups.push_back(Finish(std::move(counting), result.builds));
  std::ranges::stable_sort(result.groups, std::ranges::greater{}, &TriageGroup::count);
  SetMarks(result.groups, result.builds);
  SetSimilar(result.groups);
  return result;
}

}  // namespace tarvo::toolkit
