#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tarvo/result.h"
#include "toolkit/pack/archive/archive_plan.h"
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
  std::string replaced;     ///< what it took the place of; empty where it was added
};
struct PackedArchive {
  std::vector<PackedBundle> bundles;
  std::vector<KeptBundle> kept;  ///< those that were there before
  /// Where several programs would be "application.app.dsym" and none was told to be, these; the
  /// one that is comes first.
  std::vector<ManifestEntry> applicants;
  std::uint64_t bytes = 0;  ///< of the archive
};

struct WriteOptions {
  bool replaces = false;                          ///< an older archive is not read
  std::string application{};                      ///< the program of that name; may be empty
  std::function<void(double part)> onProgress{};  ///< told at times, from 0 to 1
};

/// Adds `bundles` to the archive `path`, which is made where it is missing, with its directory.
/// Bundles of the same module, platform and processors take the place of those that are there
/// (archive_plan.h). Other processes that add to the same archive wait. The new archive takes the
/// old one's place in one step; where this fails the old one stays. Contents go through in pieces.
Result<PackedArchive> WriteArchive(const std::string& path, std::vector<Bundle> bundles,
                                   const WriteOptions& options);

}  // namespace tarvo::toolkit
