#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "symbol_file.h"
#include "tarvo/result.h"

namespace tarvo::symbolreader {

/// The open symbol files of the process, shared by all threads, and what could not be opened. The
/// least recently used ones are let go when there are too many; who holds one keeps it.
///
/// A file is known by its device, inode, size and time of change, so a file that was replaced is
/// opened anew, as is one of which a part has come that was missing. Opening one holds up only
/// those who want the same one.
class SymbolFileCache {
 public:
  static constexpr std::size_t kMostFiles = 256;
  static constexpr std::size_t kMostBytes = std::size_t{4} << 30;

  explicit SymbolFileCache(std::size_t mostFiles = kMostFiles, std::size_t mostBytes = kMostBytes)
      : mostFiles_(mostFiles), mostBytes_(mostBytes) {}

  /// The one of this module.
  static SymbolFileCache& Instance();

  /// The debug file of the bundle at `bundle`, by FindDebugFile and OpenSymbolFile.
  Result<SymbolFileRef> Open(const std::string& bundle, const DebugFileRequest& request);
  void Clear();

  struct Load {
    std::size_t files = 0;
    std::size_t bytes = 0;
  };
  [[nodiscard]] Load Held() const;

 private:
  struct Entry;
  using Entries = std::list<std::shared_ptr<Entry>>;

  std::shared_ptr<Entry> Use(const std::string& key);
  void Account(const std::shared_ptr<Entry>& entry, std::size_t bytes);
  void Drop();

  const std::size_t mostFiles_;
  const std::size_t mostBytes_;
  mutable std::mutex mutex_;
  Entries entries_;  ///< the last used first
  std::unordered_map<std::string_view, Entries::iterator> places_;
  std::size_t bytes_ = 0;
};

}  // namespace tarvo::symbolreader
