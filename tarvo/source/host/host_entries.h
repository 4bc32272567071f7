#pragma once

#include <string>

#include "archive/archive_limits.h"
#include "tarvo/configuration.h"
#include "tarvo/host/crash_guard.h"

namespace tarvo {

/// The variables of the host's own configuration entries.
struct HostEntries {
  String unitTestsId;  ///< g_UnitTests_Id
  ArchiveLimits archiveLimits;
  CrashGuardOptions crashGuard;
  std::string crashGuardReport;  ///< the default of its report, which the table points to
};

/// Sets the variables to their defaults, the crash guard's to the program's, and declares them.
void DeclareHostEntries(HostEntries& entries, const CrashGuardOptions& crashGuard,
                        ConfigurationTable& table);

}  // namespace tarvo
