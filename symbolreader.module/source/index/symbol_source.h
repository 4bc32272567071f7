#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "index/name_memo.h"
#include "tarvo/inline_symbolification.h"

namespace tarvo::symbolreader {

/// Longer chains are cut off at their outer end. Compilers stop far below.
inline constexpr std::size_t kLongestChain = 1000;

/// Where chains come from: an index, or debug information itself. Any number of threads may ask at
/// once.
class SymbolSource {
 public:
  virtual ~SymbolSource() = default;

  /// The chain of an address in the image's own address space, names demangled, files joined with
  /// the compilation directory; nothing when neither debug information nor symbol table knows it.
  /// `names` is the caller's own.
  [[nodiscard]] virtual std::optional<AddressChain> Find(std::uint64_t address,
                                                         NameMemo& names) const = 0;
  /// What it takes of the address space: the size of the mapped file.
  [[nodiscard]] virtual std::size_t Bytes() const = 0;
};

}  // namespace tarvo::symbolreader
