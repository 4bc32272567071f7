#pragma once

#include <cstdint>

#include "linux/linux_crashhandler/facts/modules.h"

namespace tarvo::crashhandler {

struct DynamicSymbol {
  const char* name = nullptr;  ///< in the module's own string table; null when none was found
  std::uint64_t address = 0;   ///< where the symbol starts in memory
};

/// The symbol of `image` that the loader's own address look-up finds for `address`: of the dynamic
/// symbols that the module's hash table lists and that hold the address, the one that starts last,
/// the first in the table's order among equals (glibc 2.36 elf/dl-addr.c, determine_info). Reads
/// the module's memory, so it may fault when that is damaged or unmapped meanwhile. Crashed
/// process.
DynamicSymbol FindDynamicSymbol(const ModuleImage& image, std::uint64_t address);

}  // namespace tarvo::crashhandler
