#include "toolkit/triage/page/day_window.h"

#include <algorithm>
#include <iterator>
#include <map>

namespace tarvo::toolkit {
namespace {

using std::chrono::days;
using std::chrono::sys_days;

constexpr std::size_t kMostSlots = 120;
constexpr std::size_t kDaysOfWeek = 7;
/// With fewer reports none is left outside.
constexpr std::size_t kFewReports = 20;
/// How many times longer than the window all days must be for some to be left outside.
constexpr std::size_t kFarOff = 4;

constexpr sys_days kEarliestDay = std::chrono::year(1970) / 1 / 1;
constexpr sys_days kLatestDay = std::chrono::year(9999) / 12 / 31;

using DayTotals = std::map<sys_days, std::size_t>;

std::size_t SpanOf(sys_days first, sys_days last) {
  return static_cast<std::size_t>((last - first).count()) + 1;
}

/// The day at which more than `skipped` reports are reached, from `begin` on.
template <typename Iterator>
sys_days DayBeyond(const Iterator& begin, const Iterator& end, std::size_t skipped) {
  std::size_t passed = 0;
  return std::find_if(begin, std::prev(end),
                      [&](const auto& total) {
                        passed += total.second;
                        return passed > skipped;
                      })
      ->first;
}

}  // namespace

std::optional<std::size_t> DayWindow::SlotOf(sys_days day) const {
  if (slots == 0 || day < first || day > LastOf(slots - 1)) return std::nullopt;
  return static_cast<std::size_t>((day - first).count()) / daysPerSlot;
}

sys_days DayWindow::FirstOf(std::size_t slot) const {
  return first + days(static_cast<int>(slot * daysPerSlot));
}

sys_days DayWindow::LastOf(std::size_t slot) const { return FirstOf(slot + 1) - days(1); }

DayWindow FindDayWindow(std::span<const PageGroup> groups) {
  DayTotals totals;
  DayWindow window;
  for (const PageGroup& group : groups) {
    for (const PageDay& day : group.days) {
      window.reports += day.count;
      if (day.count != 0 && day.day >= kEarliestDay && day.day <= kLatestDay)
        totals[day.day] += day.count;
    }
  }
  window.daysWithReports = totals.size();
  if (totals.empty()) return window;
  sys_days first = totals.begin()->first;
  sys_days last = totals.rbegin()->first;
  const std::size_t few =
      window.reports < kFewReports ? 0 : std::max<std::size_t>(window.reports / 200, 1);
  const sys_days firstOfMost = DayBeyond(totals.begin(), totals.end(), few);
  const sys_days lastOfMost = DayBeyond(totals.rbegin(), totals.rend(), few);
  if (firstOfMost <= lastOfMost &&
      SpanOf(first, last) > kMostSlots / 2 + kFarOff * SpanOf(firstOfMost, lastOfMost)) {
    first = firstOfMost;
    last = lastOfMost;
  }
  const std::size_t span = SpanOf(first, last);
  if (span > kMostSlots)
    window.daysPerSlot =
        (span + kMostSlots * kDaysOfWeek - 1) / (kMostSlots * kDaysOfWeek) * kDaysOfWeek;
  window.first = first;
  window.slots = (span + window.daysPerSlot - 1) / window.daysPerSlot;
  window.outside = window.reports;
  for (const auto& [day, count] : totals)
    if (window.SlotOf(day)) window.outside -= count;
  return window;
}

std::vector<std::size_t> CountBySlot(std::span<const PageDay> days, const DayWindow& window) {
  std::vector<std::size_t> counts(window.slots, 0);
  for (const PageDay& day : days)
    if (const auto slot = window.SlotOf(day.day)) counts[*slot] += day.count;
  return counts;
}

}  // namespace tarvo::toolkit
