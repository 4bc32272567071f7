#pragma once

#include <optional>

#include "toolkit/document/crash_document.h"
#include "toolkit/report/crash_site.h"

namespace tarvo::toolkit {

/// Where a program crashed: the thread and the frame that the document marks or, in one of before
/// there were marks, those that report::FindCrashSite finds.
[[nodiscard]] std::optional<report::CrashSite> FindCrash(const CrashDocument& document);

}  // namespace tarvo::toolkit
