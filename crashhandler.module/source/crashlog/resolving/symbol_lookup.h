#pragma once

#include <cstdint>
#include <memory>

#include "tarvo/data_dictionary.h"
#include "tarvo/inline_symbolification.h"
#include "tarvo/result.h"

namespace tarvo::crashhandler {

/// Look-ups for one crash log, through whichever interface the bound symbol reader has. Used by one
/// thread.
class SymbolLookup {
 public:
  virtual ~SymbolLookup() = default;
  /// The request's architecture is filled in as far as the crash log states it.
  virtual Result<void> Load(const SymbolFileRequest& request) = 0;
  /// Whether one Load will do for any number of look-ups; else each has its own.
  [[nodiscard]] virtual bool StaysLoaded() const = 0;
  /// At least one frame.
  virtual Result<AddressChain> Resolve(std::uint64_t offset) = 0;
};

/// Look-ups for `crashLog` through InlineSymbolification, which is told the architecture where the
/// crash log states one; without it through Symbolification, for the stated architecture or x86_64,
/// with chains of one frame. The error is that there is no Symbolification.
Result<std::unique_ptr<SymbolLookup>> BindSymbolLookup(const DataDictionary& crashLog);

}  // namespace tarvo::crashhandler
