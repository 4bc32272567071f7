#pragma once

#include <llvm/DebugInfo/DWARF/DWARFContext.h>
#include <llvm/DebugInfo/DWARF/DWARFDebugLine.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace tarvo::symbolreader {

/// The path of the file that a line table has at `index`, joined with its directory and with that
/// of the compilation. Nothing where it lists none.
[[nodiscard]] std::optional<std::string> SourcePath(const llvm::DWARFDebugLine::Prologue& table,
                                                    std::uint64_t index,
                                                    const std::string& compilationDirectory);

/// The checksum of that file as SourceFrame has it; empty where the table has none.
[[nodiscard]] std::string SourceChecksum(const llvm::DWARFDebugLine::Prologue& table,
                                         std::uint64_t index);

/// Checksums by path, for who gets no numbers of files. Keeps those of the last unit. Used by one
/// thread.
class SourceChecksums {
 public:
  /// `context` outlives the object.
  explicit SourceChecksums(llvm::DWARFContext& context) : context_(context) {}

  /// Of the file `path` in the unit that has code at `address`; empty where it is not known, or two
  /// of that path differ.
  [[nodiscard]] std::string Find(std::uint64_t address, const std::string& path);

 private:
  void Read(llvm::DWARFUnit& unit);

  llvm::DWARFContext& context_;
  const llvm::DWARFUnit* unit_ = nullptr;  ///< whose files these are
  std::map<std::string, std::string> checksums_;
};

}  // namespace tarvo::symbolreader
