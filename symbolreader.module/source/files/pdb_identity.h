#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarvo::symbolreader {

/// What a PDB says of itself at its start.
struct PdbIdentity {
  std::string id;            ///< signature and age in hexadecimal, as a PE file names its PDB
  std::string architecture;  ///< LLVM's name; "machine type N" where it has none here
};

/// Reads a PDB's identity from its bytes: two streams of its file of blocks ("MSF"), by the layout
/// that LLVM's documentation of the format gives (docs/PDB). Nothing where they do not hold it.
/// Touches few bytes and nothing outside of them, so that it may run where a broken file must not
/// do harm.
[[nodiscard]] std::optional<PdbIdentity> ReadPdbIdentity(std::string_view bytes);

/// The name of a machine by its number in PE files and PDBs.
[[nodiscard]] std::string MachineName(std::uint16_t machine);

}  // namespace tarvo::symbolreader
