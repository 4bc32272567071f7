#include "toolkit/triage/result/group_marks.h"

#include <algorithm>
#include <map>
#include <tuple>

namespace tarvo::toolkit {
namespace {

using Day = std::chrono::sys_days;

constexpr std::chrono::days kWeek{7};
constexpr std::size_t kLeastRising = 3;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

/// Takes a number's digits from the front, without leading zeros.
std::string_view TakeDigits(std::string_view& text) {
  const std::size_t end = std::min(text.find_first_not_of("0123456789"), text.size());
  std::string_view digits = text.substr(0, end);
  text.remove_prefix(end);
  digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
  return digits;
}

/// Whether the group's builds have a gap in front of the newest of all.
bool IsBack(const std::vector<bool>& occursIn) {
  if (occursIn.size() < 3 || !occursIn.back() || occursIn[occursIn.size() - 2]) return false;
  return std::find(occursIn.begin(), occursIn.end() - 1, true) != occursIn.end() - 1;
}

bool IsRising(const TriageGroup& group, Day lastDay) {
  std::size_t recent = 0, before = 0;
  for (const DayCount& day : group.days) {
    if (day.day > lastDay - kWeek)
      recent += day.count;
    else if (day.day > lastDay - 2 * kWeek)
      before += day.count;
  }
  return recent >= kLeastRising && recent > 2 * before;
}

}  // namespace

bool ComesBefore(std::string_view a, std::string_view b) {
  std::string_view restA = a, restB = b;
  while (!restA.empty() && !restB.empty()) {
    if (IsDigit(restA[0]) && IsDigit(restB[0])) {
      const std::string_view numberA = TakeDigits(restA), numberB = TakeDigits(restB);
      if (numberA.size() != numberB.size()) return numberA.size() < numberB.size();
      if (numberA != numberB) return numberA < numberB;
    } else if (restA[0] != restB[0]) {
      return static_cast<unsigned char>(restA[0]) < static_cast<unsigned char>(restB[0]);
    } else {
      restA.remove_prefix(1);
      restB.remove_prefix(1);
    }
  }
  return restA.size() == restB.size() ? a < b : restA.size() < restB.size();
}

std::vector<std::string> BuildsByAge(const std::vector<StoredReport>& reports) {
  const Day never = Day::max();
  std::map<std::string, Day> firstDays;
  for (const StoredReport& report : reports) {
    const Day day = report.time ? std::chrono::floor<std::chrono::days>(*report.time) : never;
    const auto [known, isNew] = firstDays.try_emplace(report.build, day);
    if (!isNew) known->second = std::min(known->second, day);
  }
  std::vector<std::string> builds;
  for (const auto& [build, day] : firstDays) builds.push_back(build);
  std::ranges::sort(builds, [&](const std::string& a, const std::string& b) {
    const Day dayA = firstDays[a], dayB = firstDays[b];
    return dayA != dayB ? dayA < dayB : ComesBefore(a, b);
  });
  return builds;
}

void SetMarks(std::vector<TriageGroup>& groups, const std::vector<std::string>& builds) {
  Day firstDay = Day::max(), lastDay = Day::min();
  for (const TriageGroup& group : groups) {
    for (const DayCount& day : group.days) {
      firstDay = std::min(firstDay, day.day);
      lastDay = std::max(lastDay, day.day);
    }
  }
  const bool hasHistory = firstDay <= lastDay && lastDay - firstDay >= kWeek;
  std::map<std::string_view, std::size_t> ages;
  for (std::size_t i = 0; i < builds.size(); ++i) ages[builds[i]] = i;
  for (TriageGroup& group : groups) {
    std::vector<bool> occursIn(builds.size());
    for (const NamedCount& build : group.builds) occursIn[ages[build.name]] = true;
    group.isNew = builds.size() > 1 && group.builds.size() == 1 && occursIn.back();
    group.isBack = IsBack(occursIn);
    group.isRising = hasHistory && IsRising(group, lastDay);
  }
}

}  // namespace tarvo::toolkit
