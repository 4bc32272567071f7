#pragma once

#include <cstdint>
#include <string>

#include "tarvo/registration.h"
#include "tarvo/string.h"

namespace tarvo::symbolreader {

/// The module's entries. Set by the host before the module is initialised, not changed by it.
extern String g_symbolIndexDirectory;     ///< where indices are kept; empty: the user's cache
extern std::int64_t g_symbolIndexMemory;  ///< what making one index may take, in mebibytes
extern std::int64_t g_symbolIndexTime;    ///< the same in seconds

/// The directory of indices as a system path, from g_symbolIndexDirectory or, where that is empty,
/// "tarvo/symbols" in the user's cache directory ($XDG_CACHE_HOME, else $HOME/.cache). Empty when
/// there is no such place. Valid once the module is initialised.
[[nodiscard]] const std::string& IndexDirectory();

/// Registers the entries and the module's life: initialising fails with a conversion error when
/// g_symbolIndexDirectory is no URL; freeing lets go of all open symbol files.
void RegisterConfiguration(Registration& registration);

}  // namespace tarvo::symbolreader
