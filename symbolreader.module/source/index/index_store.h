#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "index/missing_files.h"
#include "tarvo/result.h"

namespace tarvo::symbolreader {

/// The directory of indices. A debug file's index is the file KEY.index, where KEY names its
/// contents, its architecture and the version of the format. Beside it may be KEY.failed, which
/// says why there is none, and for moments KEY.lock and temporary files. All may be deleted at any
/// time.
class IndexStore {
 public:
  IndexStore(std::string directory, std::string key)
      : directory_(std::move(directory)), key_(std::move(key)) {}

  [[nodiscard]] const std::string& Key() const { return key_; }
  [[nodiscard]] std::string IndexPath() const { return directory_ + "/" + key_ + ".index"; }
  /// A name for an index that is being made, other than every other one.
  [[nodiscard]] std::string TemporaryPath() const;

  /// Makes the directory (0700, with its parents) and takes this key's lock, so that one thread of
  /// one process makes the index and the others then find it. Waits for it at most `patience`.
  /// A file error when the directory cannot be written or the lock does not come free.
  class Lock;
  Result<Lock> TakeLock(std::chrono::seconds patience) const;

  /// Removes what processes have left that were killed while they made this index. Only with the
  /// lock.
  void RemoveLeftovers() const;

  /// Publishes the file at `temporaryPath` as the index.
  [[nodiscard]] bool Publish(const std::string& temporaryPath) const;

  /// Why the index could not be made, in one line, and the parts of the debug file that were looked
  /// at.
  struct Failure {
    std::string reason;
    std::vector<MissingFile> parts{};
  };
  /// Remembers that the index could not be made under `limits`. Forgotten when the limits change.
  void RememberFailure(const std::string& limits, const Failure& failure) const;
  /// Why the index could not be made before under these limits; nothing when it was not tried, or
  /// one of the parts of `debugFile` has come or gone since.
  [[nodiscard]] std::optional<Failure> RememberedFailure(const std::string& limits,
                                                         const std::string& debugFile) const;

 private:
  [[nodiscard]] std::string Path(std::string_view suffix) const;

  std::string directory_;
  std::string key_;
};

/// Held while an index is made; let go by the destructor, and by the process's end.
class IndexStore::Lock {
 public:
  Lock(int descriptor, std::string path) : descriptor_(descriptor), path_(std::move(path)) {}
  Lock(Lock&& other) noexcept;
  Lock& operator=(Lock&&) = delete;
  ~Lock();

 private:
  int descriptor_;
  std::string path_;
};

}  // namespace tarvo::symbolreader
