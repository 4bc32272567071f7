#pragma once

#include "source/archive_limits.h"
#include "tarvo/configuration.h"

namespace tarvo {

/// The variables of the host's own configuration entries.
struct HostEntries {
  String unitTestsId;  ///< g_UnitTests_Id
  ArchiveLimits archiveLimits;
};

/// Sets the variables to their defaults and declares them.
void DeclareHostEntries(HostEntries& entries, ConfigurationTable& table);

}  // namespace tarvo
