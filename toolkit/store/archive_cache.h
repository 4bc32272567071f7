#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "tarvo/framework.h"
#include "tarvo/url.h"
#include "toolkit/store/archive_tree.h"
#include "toolkit/store/manifest.h"

namespace tarvo::toolkit {

/// An archive, unpacked.
struct UnpackedArchive {
  std::string directory;
  Manifest manifest;  ///< empty where it has none
};

/// The cache of unpacked archives, tied to what is in them: CACHE/BUILD is that of the build's
/// first archive, and CACHE/.tarvo-archive-BUILD its identity. Where that is another one now the
/// directory is moved away before anybody looks into it, and unpacked anew. Who has files of it
/// open keeps them. A directory without an identity, of the module's own job, counts as another
/// one. Further archives of a build have CACHE/BUILD~ and the start of their identity.
///
/// All operations from any thread.
class ArchiveCache {
 public:
  ArchiveCache(std::vector<Url> archives, Url cache)
      : archives_(std::move(archives)), cache_(std::move(cache)) {}

  /// Moves away what is unpacked of `build` and does not come from its archive as it is now. An
  /// archive that is not there, or not whole, changes nothing. Once for each build of this object.
  void Retire(const std::string& build);

  /// The archives of `build`, unpacked where that has not been done: it may take long. Those that
  /// cannot be unpacked are left out. `framework` is that of the host that runs.
  [[nodiscard]] std::vector<UnpackedArchive> Unpack(Framework& framework, const std::string& build);

  /// What `directory`, where an archive was unpacked to, holds.
  [[nodiscard]] const Manifest& ManifestOf(const std::string& directory);

  [[nodiscard]] ArchiveTree& Archives() noexcept { return archives_; }
  [[nodiscard]] const Url& Directory() const noexcept { return cache_; }

 private:
  ArchiveTree archives_;
  const Url cache_;
  std::mutex mutex_;
  std::map<std::string, bool> isRetired_;      ///< by build
  std::map<std::string, Manifest> manifests_;  ///< by directory
};

}  // namespace tarvo::toolkit
