#include "main/configuration.h"

namespace tarvo::crashhandler {

String g_crashlogDirectory;
String g_symbolArchiveDirectory;
String g_symbolTemporaryDirectory;
String g_crashReportUrl;

void DeclareConfiguration(ConfigurationTable& table) {
  table.DeclareString("g_crashlogDirectory", g_crashlogDirectory, "", kGeneralCategory,
                      "url to directory containing crashlogs");
  table.DeclareString("g_symbolArchiveDirectory", g_symbolArchiveDirectory, "", kGeneralCategory,
                      "url to directory containing symbol file archives (dsym.zip, pdb.zip)");
  table.DeclareString(
      "g_symbolTemporaryDirectory", g_symbolTemporaryDirectory, "", kGeneralCategory,
      "url to temporary directory containing uncompressed symbol files (dsym, pdb)");
  table.DeclareString("g_crashReportUrl", g_crashReportUrl, "", kGeneralCategory,
                      "url to be used for writing a crashlog (defaults to stderr)");
}

}  // namespace tarvo::crashhandler
