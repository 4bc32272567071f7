#pragma once

#include <string_view>

#include "files/debug_file.h"

namespace tarvo::symbolreader {

/// The facts of `file`, whose lines are in a PDB, completed from there: signature and, of a PDB
/// alone, architecture and image (sections lie relative to its start, so it starts at 0).
///
/// A file error as from OpenDebugFile when the PDB is missing, damaged, for another architecture or
/// of another build than the PE file. LLVM's reader crashes on some broken PDBs.
Result<DebugFileFacts> ReadPdbFacts(const DebugFile& file, std::string_view architecture);

}  // namespace tarvo::symbolreader
