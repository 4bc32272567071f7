#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "files/debug_file.h"
#include "index/symbol_source.h"

namespace tarvo::symbolreader {

/// Reads debug information at every question, unit by unit as they are asked for. Prints nothing.
/// Used by one thread; may end the process on files that are broken enough.
class AddressReader {
 public:
  virtual ~AddressReader() = default;
  /// As SymbolSource::Find.
  virtual std::optional<AddressChain> Find(std::uint64_t address) = 0;
};

/// Reads the DWARF and the symbol table of `file`.
std::unique_ptr<AddressReader> OpenDwarf(std::shared_ptr<const DebugFile> file);

/// Reads the PDB that `facts` names. A file error when it is damaged.
Result<std::unique_ptr<AddressReader>> OpenPdb(const DebugFileFacts& facts);

}  // namespace tarvo::symbolreader
