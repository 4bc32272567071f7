#pragma once

#include <string>

#include "tarvo/result.h"

namespace tarvo::toolkit {

/// Locks and temporary files of packers, in the directory of the archives. Their names start with
/// this; what a killed packer has left has a free lock, and goes when the next one begins.
inline constexpr const char* kPackTemporaryName = ".tarvo-pack-";

/// A directory beside the archives, for one that is being written; held locked, and removed with
/// all that is in it.
class PackDirectory {
 public:
  /// A file error when it cannot be made. Clears what killed packers have left.
  static Result<PackDirectory> Make(const std::string& archives);
  PackDirectory(PackDirectory&& other) noexcept;
  PackDirectory& operator=(PackDirectory&&) = delete;
  ~PackDirectory();

  [[nodiscard]] const std::string& Path() const noexcept { return path_; }

 private:
  PackDirectory(std::string path, int lock) noexcept;

  std::string path_;
  int lock_;
};

/// Lets one process at a time change an archive: who reads it and writes a new one must not lose
/// what another one has added meanwhile. Given up by the destructor, and by the process's end.
class ArchiveLock {
 public:
  /// Waits for it. A file error when the lock's file, beside the archive, cannot be made.
  static Result<ArchiveLock> Take(const std::string& archive);
  ArchiveLock(ArchiveLock&& other) noexcept;
  ArchiveLock& operator=(ArchiveLock&&) = delete;
  ~ArchiveLock();

 private:
  ArchiveLock(std::string path, int lock) noexcept;

  std::string path_;
  int lock_;
};

/// "Could not write "PATH": REASON"
Error WriteFailure(SourceLocation where, const std::string& path, std::string_view reason);

}  // namespace tarvo::toolkit
