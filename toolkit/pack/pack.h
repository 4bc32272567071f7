#pragma once

#include <string>
#include <vector>

#include "tarvo/result.h"
#include "toolkit/pack/bundle.h"

namespace tarvo::toolkit {

enum class ArchiveLayout { Flat, Hierarchy };

/// Where the archive of `build` belongs below `archives`, so that the look-up finds it:
///
///     Flat       archives/BUILD_dsym.zip
///     Hierarchy  archives/symbols/KEY/builds/BUILD_dsym.zip
///
/// KEY is the build's search key, or the build itself where that is empty.
std::string ArchivePath(const std::string& archives, const std::string& build,
                        ArchiveLayout layout);

/// What an archive was made of, for people.
struct PackedBundle {
  std::string name;
  std::string source;
  std::uint64_t bytes = 0;  ///< of all its files, not compressed
};
struct PackedArchive {
  std::vector<PackedBundle> bundles;
  std::uint64_t bytes = 0;  ///< of the archive
};

/// Writes the archive `path` with all `bundles`, in their order; its directory is made where need
/// be. An older archive is replaced, or stays where this fails. Files are taken through in pieces;
/// the debug sections of one file at a time are held in memory and go through a scratch file beside
/// the archive, as there is room for them there.
Result<PackedArchive> WriteArchive(const std::string& path, const std::vector<Bundle>& bundles);

}  // namespace tarvo::toolkit
