#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "toolkit/triage/page/page_content.h"

namespace tarvo::toolkit {

/// The days that the page's charts are of, in slots of equal length.
struct DayWindow {
  std::chrono::sys_days first{};
  std::size_t daysPerSlot = 1;      ///< 1, or whole weeks
  std::size_t slots = 0;            ///< 0: no report says when it happened
  std::size_t outside = 0;          ///< reports of other days
  std::size_t reports = 0;          ///< all whose day is known
  std::size_t daysWithReports = 0;  ///< days that have reports, in the window or not

  /// The slot of a day; nothing for days outside.
  [[nodiscard]] std::optional<std::size_t> SlotOf(std::chrono::sys_days day) const;
  [[nodiscard]] std::chrono::sys_days FirstOf(std::size_t slot) const;
  [[nodiscard]] std::chrono::sys_days LastOf(std::size_t slot) const;
};

/// The days from the first report to the last. Where a few reports, one in two hundred at each end
/// at most, lie so far off that nothing would be seen of the others, they stay outside: machines
/// whose clock was wrong make such. So do days before 1970 and beyond 9999.
[[nodiscard]] DayWindow FindDayWindow(std::span<const PageGroup> groups);

/// Reports in each slot.
[[nodiscard]] std::vector<std::size_t> CountBySlot(std::span<const PageDay> days,
                                                   const DayWindow& window);

}  // namespace tarvo::toolkit
