#pragma once

#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "tarvo/url.h"

namespace tarvo::toolkit {

/// An archive of symbols as it is now.
struct ArchiveState {
  std::string file;      ///< its path
  std::string identity;  ///< see IdentifyArchive
};

/// What changes when the content of the zip file `file` does, whatever times it is given:
/// "zip-" and 32 digits made from its directory, which has size and checksum of each entry. Of a
/// file without one, for it is not a whole archive, "incomplete-" and as many digits made from its
/// size and its end; of one that cannot be read "unreadable". Reads some kilobytes.
[[nodiscard]] std::string IdentifyArchive(const std::string& file);

/// The archives below a directory, by build. Listed at the first question, once, and each archive
/// looked at once. All operations from any thread.
class ArchiveTree {
 public:
  explicit ArchiveTree(const Url& directory) : directory_(directory) {}

  /// All archives of `build`, sorted by path; none where there is none. A directory that cannot be
  /// listed counts as empty.
  [[nodiscard]] std::vector<ArchiveState> Of(std::string_view build);

 private:
  void List();

  const Url directory_;
  std::mutex mutex_;
  bool isListed_ = false;
  std::map<std::string, std::vector<ArchiveState>, std::less<>> archives_;
};

}  // namespace tarvo::toolkit
