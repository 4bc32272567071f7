#pragma once

#include <array>
#include <cstdint>
#include <string_view>

/// An index file: what a debug file answers, ready to be mapped.
///
///     GSYM data       LLVM's format ("llvm/DebugInfo/GSYM"), readable by llvm-gsymutil: addresses,
///                     names, files and lines
///     padding         zeros, so that the trailer is aligned and the file's size is no multiple of
///                     a page: LLVM would read such a file instead of mapping it
///     IndexTrailer    the last bytes of the file
///
/// One GSYM entry stands for a run of addresses with one innermost function, whether inlined there
/// or not, and at most kRowsPerEntry line rows. LLVM reads an entry from its start, so a look-up
/// takes one binary search and a few rows however long the function is. Names are demangled. The
/// entries do not overlap and leave out what nothing is known of; a run that has lines and no
/// function is named kNoFunction.
///
/// Look-up of an address: the last entry that starts at or below it, if it reaches that far; then
/// in its rows the last one at or below the address. An entry without rows has no file and line.
namespace tarvo::symbolreader {

/// Changes whenever the entries for the same debug file would.
inline constexpr std::uint32_t kIndexVersion = 1;
inline constexpr std::uint32_t kRowsPerEntry = 16;
inline constexpr std::string_view kNoFunction = "??";

struct IndexTrailer {
  static constexpr std::array<char, 8> kMagic = {'T', 'A', 'R', 'V', 'O', 'S', 'Y', 'M'};

  std::array<char, 8> magic = kMagic;
  std::uint32_t version = kIndexVersion;
  std::uint32_t size = sizeof(IndexTrailer);
  std::uint64_t fileSize = 0;  ///< of the whole file
  std::uint64_t key = 0;       ///< XXH3 of the index's name: an index under a wrong name is damaged
  std::uint64_t checksum = 0;  ///< XXH3 of all bytes before this field
};
static_assert(sizeof(IndexTrailer) == 40);

}  // namespace tarvo::symbolreader
