#pragma once

#include "tarvo/configuration.h"
#include "tarvo/string.h"

namespace tarvo::crashhandler {

/// The module's URL entries in text form; empty means not set. Set by the host before the module is
/// initialised, not changed by the module.
extern String g_crashlogDirectory;         ///< the reports that the resolve job walks
extern String g_symbolArchiveDirectory;    ///< the tree of symbol archives
extern String g_symbolTemporaryDirectory;  ///< the cache of extracted symbols
extern String g_crashReportUrl;            ///< where a crash of this process is written to

/// Declares the four entries. When the module is loaded.
void DeclareConfiguration(ConfigurationTable& table);

}  // namespace tarvo::crashhandler
