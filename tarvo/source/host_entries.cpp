#include "source/host_entries.h"

#include <limits>

namespace tarvo {

void DeclareHostEntries(HostEntries& entries, ConfigurationTable& table) {
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
}

}  // namespace tarvo
