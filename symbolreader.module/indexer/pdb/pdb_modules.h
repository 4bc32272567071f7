#pragma once

#include <llvm/DebugInfo/CodeView/CVRecord.h>
#include <llvm/DebugInfo/CodeView/DebugLinesSubsection.h>
#include <llvm/DebugInfo/PDB/Native/DbiStream.h>
#include <llvm/DebugInfo/PDB/Native/PDBFile.h>

#include <cstdint>
#include <functional>
#include <string>

#include "tarvo/result.h"

namespace tarvo::symbolreader {

/// What is told of a PDB's modules, which object files have become, in their order.
struct PdbModuleReader {
  std::function<void(const llvm::codeview::CVSymbol&)> onFunction;
  std::function<void(const llvm::codeview::CVSymbol&)> onInlined;  ///< behind the function around
  std::function<void(const llvm::codeview::DebugLinesSubsectionRef&)> onLines;
};

/// Reads all modules; what is damaged is left out.
void ReadPdbModules(llvm::pdb::PDBFile& pdb, const llvm::pdb::DbiStream& debug,
                    const PdbModuleReader& reader);

/// How much a PDB tells.
struct PdbCounts {
  std::uint64_t functions = 0;
  std::uint64_t inlined = 0;  ///< places where a function is inlined
  std::uint64_t lines = 0;
};

/// Counts what is in the PDB at `path`. A file error when it is damaged.
Result<PdbCounts> CountPdb(const std::string& path);

}  // namespace tarvo::symbolreader
