#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "tarvo/string.h"

namespace tarvo::symbolreader {

/// What an address stands for. Empty texts and line 0 mean "not known".
struct SourcePosition {
  String function;    ///< the innermost one, inlined functions included, demangled
  String sourceFile;  ///< joined with the compilation directory
  std::int64_t line = 0;

  friend bool operator==(const SourcePosition&, const SourcePosition&) = default;
};

/// Where positions come from: an index, or debug information itself. Any number of threads may ask
/// at once.
class SymbolSource {
 public:
  virtual ~SymbolSource() = default;

  /// The position of an address in the image's own address space; nothing when neither debug
  /// information nor symbol table knows it.
  [[nodiscard]] virtual std::optional<SourcePosition> Find(std::uint64_t address) const = 0;
  /// What it takes of the address space: the size of the mapped file.
  [[nodiscard]] virtual std::size_t Bytes() const = 0;
};

}  // namespace tarvo::symbolreader
