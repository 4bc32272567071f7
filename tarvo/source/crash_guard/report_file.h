#pragma once

#include <climits>
#include <string>
#include <string_view>

#include "tarvo/result.h"

namespace tarvo {

// A report of its own for each process, also for one that was forked and runs no other program. The
// capture knows one path for its report, given at the start, when the process id at the crash is
// not known yet. So that path is the name under which /proc lists a file descriptor, and at the
// crash the report's file is opened and put there.

/// What stands in a template in the place of the process id.
inline constexpr char kProcessIdMark = '\x01';

/// The report's path but for the process id, that in the fallback folder, and where the file is
/// put. Empty and -1 without a pattern. Written before a crash.
extern char g_reportTemplate[PATH_MAX];
extern char g_fallbackTemplate[PATH_MAX];
extern int g_reportDescriptor;
/// Whether folders of the path that are missing at the crash are made.
extern bool g_makesReportFolders;

/// Prepares the report file of `pattern`, relative to the working directory of now; the system path
/// to give to the capture. Its folders are made at the crash where some of them is named by the
/// pattern's marks. Where it cannot be opened then, a file of the same name in `fallback` is, an
/// absolute path; empty: none. An illegal-argument error for a "%" that is followed by none of p,
/// e, t and %, and for a path that is too long. Before a crash.
Result<std::string> PrepareReportFile(std::string_view pattern, const std::string& fallback);

/// What is prepared, as this process would open it.
struct PreparedReport {
  std::string path;
  bool makesFolders = false;
};
[[nodiscard]] PreparedReport PreparedReportOfNow();

/// Ends what PrepareReportFile began; whether it had. Before a crash.
bool ForgetReportFile();

/// Opens the file for this process, or that in the fallback folder, if there is a pattern. Where
/// that fails, the capture does not find its path and writes to standard error. Crashed process.
void OpenReportFile();

/// The path of the open file; empty when there is none. Crashed process.
const char* ReportFilePath();

}  // namespace tarvo
