#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tarvo/result.h"

namespace tarvo::symbolreader {

/// Every address, relative to the image's start, at which what the PDB at `path` answers may
/// change, ascending: where functions, inlined code, lines and public symbols begin and end, and
/// sections. A file error when the PDB is damaged.
Result<std::vector<std::uint64_t>> ReadPdbBorders(const std::string& path);

}  // namespace tarvo::symbolreader
