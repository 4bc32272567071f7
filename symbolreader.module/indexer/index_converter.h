#pragma once

#include <llvm/ADT/SmallVector.h>

#include <string>

#include "files/debug_file.h"
#include "tarvo/result.h"

namespace tarvo::symbolreader {

/// The index of `file`, which has DWARF, named `key`: for every address of its executable sections
/// the answer that asking the DWARF and the symbol table would give. Works with `threads` threads,
/// in memory that grows with the debug information; the caller sets the limits.
///
/// An error when nothing is known of any address.
Result<llvm::SmallVector<char, 0>> ConvertToIndex(const DebugFile& file, const std::string& key,
                                                  unsigned threads);

}  // namespace tarvo::symbolreader
