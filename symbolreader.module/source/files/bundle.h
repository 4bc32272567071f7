#pragma once

#include <string>

#include "tarvo/result.h"

namespace tarvo::symbolreader {

/// Most entries of a directory that are looked at for its debug file.
inline constexpr std::size_t kMostBundleEntries = 1000;

/// The debug file in the symbol bundle at `bundle`:
///
/// - a directory with "Contents/Resources/DWARF" (a dSYM): of the debug files in there the one
/// named
///   like the bundle ("A.app.dSYM": "A.app" or "A"), else the only one;
/// - another directory: the same among its own files;
/// - a file: itself.
///
/// Files that are no debug files by their first bytes do not count, and of a PE file and a PDB with
/// the same name the PE file does, which leads to the PDB. A file error that names the bundle, what
/// was found and what was expected when there is none, or no way to choose.
Result<std::string> FindDebugFile(const std::string& bundle);

}  // namespace tarvo::symbolreader
