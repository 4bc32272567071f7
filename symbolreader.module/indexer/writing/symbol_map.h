#pragma once

#include <llvm/ADT/StringRef.h>
#include <llvm/Object/ObjectFile.h>

#include <vector>

#include "indexer/ranges.h"

namespace tarvo::symbolreader {

/// What one symbol of the symbol table covers.
struct SymbolInterval {
  std::uint64_t start = 0;
  std::uint64_t end = 0;
  llvm::StringRef name;  ///< as in the table, Mach-O's leading underscore removed
  llvm::StringRef file;  ///< of an ELF file's local symbols, the file symbol in front of them
};

/// The symbol table of `object`, ascending and without overlaps: of several symbols at one address
/// the largest counts, and the last of several as large; a symbol ends at the next one; one
/// without a size reaches up to it. Functions and data of what is loaded, no mapping symbols.
/// Symbols that cannot be read are left out. Refers to the object's memory.
std::vector<SymbolInterval> ReadSymbols(const llvm::object::ObjectFile& object);

/// The executable sections, ascending, without overlaps.
std::vector<AddressInterval> ReadTextSections(const llvm::object::ObjectFile& object);

}  // namespace tarvo::symbolreader
