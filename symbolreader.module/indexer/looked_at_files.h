#pragma once

#include <mutex>
#include <set>
#include <span>
#include <string>

#include "index/missing_files.h"

namespace tarvo::symbolreader {

/// Keeps in standard output, behind the progress, which files with parts of the debug file are
/// looked at (indexer_protocol.h): should one of them break this process, the module knows what to
/// wait for. The first kMostMissingFiles. Any thread.
class LookedAtFiles {
 public:
  void Add(std::span<const MissingFile> files);

 private:
  std::mutex mutex_;
  std::set<std::string> places_{};
  std::size_t size_ = 0;  ///< of what was written
};

}  // namespace tarvo::symbolreader
