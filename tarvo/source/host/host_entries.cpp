#include "host/host_entries.h"

#include <limits>

namespace tarvo {
namespace {

void DeclareCrashGuard(HostEntries& all, const CrashGuardOptions& defaults,
                       ConfigurationTable& table) {
  CrashGuardOptions& entries = all.crashGuard;
  all.crashGuardReport = defaults.report.ToStdString();
  table.DeclareBool("g_crashGuard", entries.enabled, defaults.enabled, kGeneralCategory,
                    "capture stack overflows and aborts too, with the registers at the fault");
  table.DeclareInt("g_crashGuardDeadline", entries.deadline, defaults.deadline, 0,
                   kCrashGuardMaximumDeadline, kGeneralCategory,
                   "seconds after which the guard ends a capture that does not end; 0: never");
  table.DeclareBool("g_crashGuardReraise", entries.reraise, defaults.reraise, kGeneralCategory,
                    "the guard ends the process by the signal of the crash, not with status 1");
  table.DeclareBool("g_crashGuardHangup", entries.hangup, defaults.hangup, kGeneralCategory,
                    "SIGHUP ends the process as without the capture, which makes it harmless");
  table.DeclareString("g_crashGuardReport", entries.report, all.crashGuardReport.c_str(),
                      kGeneralCategory,
                      "the guard's path of the report instead of g_crashReportUrl; %p stands for "
                      "the process id, %e for the program's name, %t for the time of its start");
}

}  // namespace

void DeclareHostEntries(HostEntries& entries, const HostOptions& options,
                        ConfigurationTable& table) {
  table.DeclareString("g_UnitTests_Id", entries.unitTestsId, "", kGeneralCategory,
                      "identifier of this build, written into crash reports");
  table.DeclareInt("g_archiveMaximumBytes", entries.archiveLimits.bytes,
                   ArchiveLimits::kDefaultBytes, 0, std::numeric_limits<std::int64_t>::max(),
                   kGeneralCategory,
                   "most bytes that one archive is extracted to; a larger one is an error");
  table.DeclareInt(
      "g_archiveMaximumEntries", entries.archiveLimits.entries, ArchiveLimits::kDefaultEntries, 0,
      std::numeric_limits<std::int64_t>::max(), kGeneralCategory,
      "most files and directories that one archive is extracted to; more are an error");
  DeclareCrashGuard(entries, options.crashGuard, table);
  entries.defaultFallback = options.reportFallback;
  table.DeclareString("g_crashReportFallback", entries.reportFallback,
                      entries.defaultFallback.c_str(), kGeneralCategory,
                      "folder for a report that cannot be written to its place; a relative one "
                      "starts at $XDG_STATE_HOME, else ~/.local/state");
}

}  // namespace tarvo
