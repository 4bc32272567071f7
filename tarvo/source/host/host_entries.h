#pragma once

#include <string>

#include "archive/archive_limits.h"
#include "tarvo/configuration.h"
#include "tarvo/host/host.h"

namespace tarvo {

/// The variables of the host's own configuration entries.
struct HostEntries {
  String unitTestsId;  ///< g_UnitTests_Id
  ArchiveLimits archiveLimits;
  CrashGuardOptions crashGuard;
  std::string crashGuardReport;  ///< the default of its report, which the table points to
  String reportFallback;
  std::string defaultFallback;  ///< likewise
};

/// Sets the variables to their defaults, to the program's where it has some, and declares them.
void DeclareHostEntries(HostEntries& entries, const HostOptions& options,
                        ConfigurationTable& table);

}  // namespace tarvo
