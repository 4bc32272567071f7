#pragma once

#include <cstdint>
#include <vector>

#include "symbol_file.h"
#include "tarvo/registration.h"
#include "tarvo/symbolification.h"

namespace tarvo::symbolreader {

/// The component SymbolReader: resolves against dSYM bundles, ELF debug files, and PE files with
/// DWARF or a PDB. See bundle.h for what a symbol bundle may be, image_range.h for offsets.
///
/// An object remembers its last bundles, so that the frames of a stack, which change from module to
/// module, load each bundle once. What it remembers it does not look at again: files that change
/// are seen by the next object. Used by one thread at a time, like every Symbolification.
class SymbolReader final : public Counted<Symbolification> {
 public:
  static constexpr std::size_t kRememberedBundles = 32;

  Result<void> Load(const Url& symbolFile, const String& architecture) override;
  /// An illegal-state error when nothing is loaded or nothing is known of the address; an
  /// illegal-argument error when the offset lies outside the image. Where the address belongs to
  /// no function, but has a line, `function` becomes empty.
  Result<void> Resolve(std::uint64_t offset, String& sourceFile, std::int64_t& line,
                       String& function) override;

 private:
  ~SymbolReader() override = default;

  struct Bundle {
    Url url;
    String architecture;
    Result<SymbolFileRef> file;
  };

  std::vector<Bundle> bundles_;  ///< the oldest is replaced first
  std::size_t next_ = 0;         ///< the place of the next new one
  SymbolFileRef loaded_;
};

/// Registers the component.
void RegisterSymbolReader(Registration& registration);

}  // namespace tarvo::symbolreader
