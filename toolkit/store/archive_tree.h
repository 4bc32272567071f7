#pragma once

#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
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

/// The archives below some directories, by build. Listed at the first question, once, and each
/// archive looked at once. All operations from any thread.
class ArchiveTree {
 public:
  explicit ArchiveTree(std::vector<Url> directories) : directories_(std::move(directories)) {}

  /// All archives of `build`, directory by directory in their order, in each sorted by path; none
  /// where there is none. A directory that cannot be listed counts as empty.
  [[nodiscard]] std::vector<ArchiveState> Of(std::string_view build);

  /// The builds that have archives, sorted; and the paths of a build's, without looking at them.
  [[nodiscard]] std::vector<std::string> Builds();
  [[nodiscard]] std::vector<std::string> FilesOf(std::string_view build);

 private:
  void List();

  void List(const Url& directory);

  const std::vector<Url> directories_;
  std::mutex mutex_;
  bool isListed_ = false;
  std::map<std::string, std::vector<ArchiveState>, std::less<>> archives_;
};

}  // namespace tarvo::toolkit
