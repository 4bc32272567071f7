#pragma once

#include "toolkit/triage/page/day_window.h"
#include "toolkit/triage/page/html.h"
#include "toolkit/triage/page/page_content.h"

namespace tarvo::toolkit {

/// The figure of crashes by day and build: bars, their legend, and the same in numbers. Of many
/// builds those with the most crashes are told apart. Without a known time a sentence that says so.
[[nodiscard]] Html CrashChart(const PageContent& content, const DayWindow& window);

}  // namespace tarvo::toolkit
