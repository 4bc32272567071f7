#pragma once

#include <cstdint>
#include <string_view>

/// A file that gzip or xz has packed, as a ReadArchive (tarvo/framework.h) of one entry: make an
/// object of the class below with CreateObject, Open the file, Extract it. The directory that
/// appears holds the file `kPackedContent`, with what was packed. Of a file that is damaged or cut
/// off that is what came before, and a file `kPackedDamage` beside it says in one line what was
/// found; one that gives nothing at all is an error.
namespace tarvo {

inline constexpr std::string_view kPackedFileClassId = "net.tarvo.readarchiveclass.packed";
inline constexpr std::string_view kPackedContent = "content";
inline constexpr std::string_view kPackedDamage = "damage";

/// More than this is not unpacked, nor than g_archiveMaximumBytes.
inline constexpr std::int64_t kMaximumUnpackedBytes = std::int64_t{1} << 30;

/// What packed files start with.
inline constexpr std::string_view kGzipStart = "\x1f\x8b";
inline constexpr std::string_view kXzStart{
    "\xfd"
    "7zXZ\0",
    6};

/// Whether a file that starts with `start` is one.
[[nodiscard]] constexpr bool IsPacked(std::string_view start) noexcept {
  return start.starts_with(kGzipStart) || start.starts_with(kXzStart);
}

}  // namespace tarvo
