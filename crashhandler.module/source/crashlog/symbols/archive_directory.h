#pragma once

#include <optional>
#include <vector>

#include "tarvo/framework.h"
#include "tarvo/result.h"
#include "tarvo/url.h"

namespace tarvo::crashhandler {

/// The root of the symbol archives, with what was listed of its first two levels: the builds of one
/// report are searched for one after the other, and listing a large tree costs more than all else.
/// Lists no further than was asked for. Used by one thread.
class ArchiveDirectory {
 public:
  explicit ArchiveDirectory(Url root) : root_(std::move(root)) {}

  [[nodiscard]] const Url& Root() const noexcept { return root_; }

  /// The directories in the directories of the root, one after the other from `index` 0 on, in
  /// listing order; null behind the last one. The error when listing came to one before `index`.
  /// Valid until the next call.
  Result<const DirectoryEntry*> SecondLevel(std::size_t index);

 private:
  Result<void> ListOneMore();

  Url root_;
  Ref<BrowseIterator> first_;
  Ref<BrowseIterator> second_;  ///< in a directory that first_ gave
  std::vector<DirectoryEntry> directories_;
  std::optional<Result<void>> end_;  ///< how the listing ended, when it has
};

}  // namespace tarvo::crashhandler
