#pragma once

#include <string>

#include "files/debug_file.h"
#include "tarvo/result.h"

namespace tarvo::symbolreader {

/// Writes the index of the PDB that `facts`, complete, name: as ConvertToIndex. The reader of PDBs
/// is asked once for each run of addresses without a change, in one thread.
Result<void> ConvertPdbToIndex(const DebugFileFacts& facts, const std::string& key,
                               const std::string& output);

}  // namespace tarvo::symbolreader
