#pragma once

#include <string>

#include "files/debug_file.h"
#include "tarvo/result.h"

namespace tarvo::symbolreader {

/// Writes the index of `file` to the new file `output`, named `key`: for every address of its
/// executable sections the answer that asking the DWARF and the symbol table would give. The same
/// file gives the same bytes every time. Works with `threads` threads, unit by unit: what is in
/// memory grows with the largest units and with the names, not with the debug information.
///
/// An error when nothing is known of any address; a file error when `output` cannot be written.
Result<void> ConvertToIndex(const DebugFile& file, const std::string& key,
                            const std::string& output, unsigned threads);

}  // namespace tarvo::symbolreader
