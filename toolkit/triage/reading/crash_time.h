#pragma once

#include <chrono>
#include <optional>
#include <string_view>

#include "toolkit/document/crash_document.h"

namespace tarvo::toolkit {

/// A time as reports write it: "2026-11-21T13:09:40Z", also with a blank for the "T", fractions of
/// a second, an offset ("+01:00") or without a zone, which counts as UTC; a day alone; seconds or
/// milliseconds since 1970. Nothing for other texts, and for times before 1970 or beyond 9999.
[[nodiscard]] std::optional<std::chrono::sys_seconds> ParseTime(std::string_view text);

/// When the program crashed: what the capture wrote as CrashTime, else what another key of the
/// report says that is called after a time, else when the report's file was written.
[[nodiscard]] std::optional<std::chrono::sys_seconds> CrashTimeOf(const CrashDocument& document);

}  // namespace tarvo::toolkit
