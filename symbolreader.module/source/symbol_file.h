#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "files/debug_file.h"
#include "index/missing_files.h"
#include "index/symbol_source.h"
#include "tarvo/result.h"

namespace tarvo::symbolreader {

/// A debug file as it is resolved with: where its image lies, and the source of chains.
/// Immutable; shared by all threads.
struct SymbolFile {
  std::string path;
  ImageFormat format = ImageFormat::Elf;
  ImageRange image;
  std::unique_ptr<SymbolSource> source;
  std::vector<MissingFile> missing;  ///< of its parts: opened anew it tells more when one has come
};

using SymbolFileRef = std::shared_ptr<const SymbolFile>;

/// Opens the debug file at `path` with its index, which is made first where it
/// is missing, damaged or of an older version; in that case the call takes as long as that. Several
/// threads and processes that want one index make it once.
///
/// Where no index can be had (a PDB, the directory cannot be written, making it failed now or
/// before under the same limits), the file is read directly, and a diagnostic line says so once.
/// Errors are those of OpenDebugFile.
Result<SymbolFileRef> OpenSymbolFile(const std::string& path, const DebugFileRequest& request);

}  // namespace tarvo::symbolreader
