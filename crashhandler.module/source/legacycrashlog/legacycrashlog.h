#pragma once

#include <cstddef>
#include <cstdio>

#include "tarvo/crashhandler.h"
#include "tarvo/registration.h"
#include "tarvo/source_location.h"

namespace tarvo::crashhandler {

inline constexpr SourceFile kLegacyCrashLogSource{"crashhandler.module/source/legacycrashlog"};

inline constexpr std::size_t kReportPathSize = 1024;
inline constexpr std::size_t kBuildTextSize = 128;

/// Where the report goes and what it says of the build; set at initialisation, read at a crash.
/// All texts are zero-terminated.
extern char reportPath[kReportPathSize];  ///< system path of the report file, or empty
extern FILE* reportStream;                ///< standard error when there is no path, else null
extern char buildText[kBuildTextSize];

/// Notes the application's directories, whose modules carry the build text in the report. When the
/// module is loaded.
void RegisterLegacycrashlog(Registration& registration);

/// Writes the crash report to the file at `reportPath`, or to standard error when there is none or
/// it cannot be written. Nothing is lost of what was flushed should the writer itself crash.
/// Crashed process.
///
/// Layout: that of tarvo/crash_report.h, with a tab for each block that a line stands in, "\n" for
/// line ends, and each brace on a line of its own, but for the one behind a register list whose
/// count is 4k + 3, which continues the list's last line.
void WriteCrashReport(const CrashInfo* crash);

}  // namespace tarvo::crashhandler
