#pragma once

#include <llvm/DebugInfo/PDB/Native/PDBFile.h>
#include <llvm/Support/Allocator.h>

#include <memory>
#include <string>

#include "tarvo/result.h"

namespace tarvo::symbolreader {

/// A PDB with what LLVM's reader needs to live as long.
struct OpenedPdb {
  llvm::BumpPtrAllocator allocator;
  std::unique_ptr<llvm::pdb::PDBFile> file;
};

/// Maps the PDB at `path` and reads what lists its streams. A file error when it is missing or
/// damaged.
Result<std::unique_ptr<OpenedPdb>> OpenPdb(const std::string& path);

/// The file error for a PDB of which LLVM's reader says `error`.
Error DamagedPdb(const std::string& path, llvm::Error error);

}  // namespace tarvo::symbolreader
