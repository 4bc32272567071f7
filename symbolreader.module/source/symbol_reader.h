#pragma once

#include <cstdint>
#include <vector>

#include "symbol_file.h"
#include "tarvo/inline_symbolification.h"
#include "tarvo/registration.h"

namespace tarvo::symbolreader {

/// Resolves against dSYM bundles, ELF debug files, and PE files with DWARF or a PDB. See bundle.h
/// for what a symbol bundle may be, image_range.h for offsets.
///
/// An object remembers its last bundles, so that the frames of a stack, which change from module to
/// module, load each bundle once. What it remembers it does not look at again: files that change
/// are seen by the next object. Used by one thread at a time.
class BundleReader {
 public:
  static constexpr std::size_t kRememberedBundles = 32;

  Result<void> Load(const SymbolFileRequest& request);
  /// An illegal-state error when nothing is loaded or nothing is known of the address; an
  /// illegal-argument error when the offset lies outside the image. Where the address belongs to
  /// no function, but has a line, the function is empty.
  Result<AddressChain> Resolve(std::uint64_t offset);

 private:
  struct Bundle {
    SymbolFileRequest request;
    Result<SymbolFileRef> file;
  };

  std::vector<Bundle> bundles_;  ///< the oldest is replaced first
  BorrowedNames names_;
  std::size_t next_ = 0;                ///< the place of the next new one
  const SymbolFile* loaded_ = nullptr;  ///< one of bundles_
};

/// Registers the component SymbolReader for Symbolification, which answers with the innermost
/// function, and for InlineSymbolification.
void RegisterSymbolReader(Registration& registration);

}  // namespace tarvo::symbolreader
