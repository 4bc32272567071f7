#pragma once

#include <array>
#include <cstdint>
#include <string_view>

/// An index file: what a debug file answers, ready to be mapped. All numbers little endian; a
/// "varint" has seven bits a byte, the lowest first, and a signed one is zigzag-coded.
///
///     parts           one for each unit of the debug information, and one for what only the symbol
///                     table knows:
///                       names    u32 each, the numbers of the strings that the part uses
///                       u32      how many these are
///                       body     nodes, then blocks; a place in a part counts from here
///     blocks          IndexBlock each, of every part, ascending
///     string ends     u64 each: where in the string bytes the string ends; it begins where the one
///                     before does
///     string bytes    functions, demangled, and paths; string 0 is the empty one. Behind a path
///                     come a zero byte and the checksum of its file, where one is known
///     missing files   for each a varint, the size of its place, the place and a varint, its state
///                     (missing_files.h)
///     padding         zeros, so that the trailer is aligned
///     IndexTrailer    the last bytes of the file
///
/// A node is a function at some place of the code, with what it is inlined into:
///
///     varint          its name, as a place in the part's names
///     varint          twice the distance back to the node that it is inlined into, 0 where it is
///                     not; plus 1 for a symbol of the symbol table that debug information does not
///                     know
///     varint          of a symbol: its address
///     varint, varint  of an inlined function: file (a place in the names) and line of the call
///
/// Functions that several others are inlined into are there once, the others lead to it: 16 levels
/// of calls cost 16 nodes, not a chain for each address.
///
/// A block holds at most kRowsPerBlock rows of addresses without a gap:
///
///     varint          how many rows
///     varint          the distance back to the part's body
///     for each row:
///       varint          how many bytes of code it covers
///       signed varint   its node's place, plus 1, less that of the row before; 0 without a
///       function signed varint   its file's place in the names, less that of the row before; 0 for
///       none signed varint   its line less that of the row before
///
/// Look-up of an address: the last block that starts at or below it, by its leading bits and then
/// by halving; in it the row that covers the address, at most kRowsPerBlock steps; from the row its
/// node, which is the innermost function, with the row's file and line; from each node the next,
/// with the call's file and line.
/// For example, with `inner` inlined into `outer` at a.cpp:9:
///
///     names    0, 17 ("outer()"), 18 ("inner()"), 19 ("a.cpp")
///     node 0   1, 0                  outer(), not inlined
///     node 2   2, 2 * 2, 3, 9        inner(), into the node 2 bytes in front, from a.cpp:9
///     block    2, 6; 8, +1, +3, +8; 4, +2, 0, -5     8 bytes of outer() at a.cpp:8, 4 of inner()
///                                                     at a.cpp:3
namespace tarvo::symbolreader {

/// Changes whenever the index of the same debug file would.
inline constexpr std::uint32_t kIndexVersion = 6;
inline constexpr std::uint32_t kRowsPerBlock = 16;
/// Between a path and its file's checksum: no path has one.
inline constexpr char kChecksumMark = '\0';

/// Both in one place: who has found the start needs the other at once.
struct IndexBlock {
  std::uint64_t start = 0;  ///< the first address
  std::uint64_t place = 0;  ///< in the file
};

struct IndexTrailer {
  static constexpr std::array<char, 8> kMagic = {'T', 'A', 'R', 'V', 'O', 'S', 'Y', 'M'};

  std::array<char, 8> magic = kMagic;
  std::uint32_t version = kIndexVersion;
  std::uint32_t size = sizeof(IndexTrailer);
  std::uint64_t fileSize = 0;      ///< of the whole file
  std::uint64_t blocks = 0;        ///< how many
  std::uint64_t blocksPlace = 0;   ///< of these in the file; multiple of 8
  std::uint64_t strings = 0;       ///< how many
  std::uint64_t stringsPlace = 0;  ///< of the string ends in the file; multiple of 8
  std::uint64_t missing = 0;       ///< how many files
  std::uint64_t missingPlace = 0;  ///< of these in the file
  std::uint64_t imageStart =
      0;                       ///< where the image lies, of a file that does not tell at once; ...
  std::uint64_t imageEnd = 0;  ///< ... else both are 0
  std::uint64_t key = 0;       ///< XXH3 of the index's name: an index under a wrong name is damaged
  std::uint64_t checksum = 0;  ///< XXH3 of all bytes before this field
};
static_assert(sizeof(IndexTrailer) == 104);

}  // namespace tarvo::symbolreader
