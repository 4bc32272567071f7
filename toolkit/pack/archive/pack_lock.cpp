#include "toolkit/pack/archive/pack_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

#include "tarvo/format.h"
#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kPackLock{"command/pack/pack_lock"};
constexpr int kNameAttempts = 100;

/// Whether the file or directory is this process's now; one that was removed is nobody's.
bool TakeLock(int descriptor, int operation) {
  struct stat status{};
  return flock(descriptor, operation) == 0 && fstat(descriptor, &status) == 0 &&
         status.st_nlink != 0;
}

/// Removes what killed processes have left in `directory`: the lock is free.
void ClearLeft(const fs::path& directory) {
  std::error_code end;
  fs::directory_iterator entries(directory, end);
  for (; !end && entries != fs::directory_iterator(); entries.increment(end)) {
    if (!entries->path().filename().string().starts_with(kPackTemporaryName)) continue;
    const int descriptor =
        open(entries->path().c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) continue;
    std::error_code ignored;
    if (TakeLock(descriptor, LOCK_EX | LOCK_NB)) fs::remove_all(entries->path(), ignored);
    close(descriptor);
  }
}

}  // namespace

Error WriteFailure(SourceLocation where, const std::string& path, std::string_view reason) {
  return Error::File(where, Format("Could not write \"@\": @", SafeText(path), reason),
                     Url::FromSystemPath(path));
}

Result<PackDirectory> PackDirectory::Make(const std::string& archives) {
  ClearLeft(archives);
  for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
    std::string path = (fs::path(archives) / (std::string(kPackTemporaryName) + "XXXXXX")).native();
    if (mkdtemp(path.data()) == nullptr)
      return WriteFailure(kPackLock.Here(), archives, std::strerror(errno));
    const int lock = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    // Another process may take it for left behind before it is locked.
    if (lock >= 0 && TakeLock(lock, LOCK_EX | LOCK_NB)) return PackDirectory(path, lock);
    if (lock >= 0) close(lock);
    rmdir(path.c_str());
  }
  return WriteFailure(kPackLock.Here(), archives, std::strerror(EEXIST));
}

PackDirectory::PackDirectory(std::string path, int lock) noexcept
    : path_(std::move(path)), lock_(lock) {}
PackDirectory::PackDirectory(PackDirectory&& other) noexcept
    : path_(std::move(other.path_)), lock_(std::exchange(other.lock_, -1)) {}
PackDirectory::~PackDirectory() {
  if (lock_ < 0) return;
  std::error_code ignored;
  fs::remove_all(path_, ignored);
  close(lock_);
}

Result<ArchiveLock> ArchiveLock::Take(const std::string& archive) {
  const fs::path file = archive;
  const std::string path =
      (file.parent_path() / (kPackTemporaryName + file.filename().native() + ".lock")).native();
  for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
    const int lock = open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (lock < 0) return WriteFailure(kPackLock.Here(), path, std::strerror(errno));
    // Who had it before has removed the file: the next one makes another.
    if (TakeLock(lock, LOCK_EX)) return ArchiveLock(path, lock);
    close(lock);
  }
  return WriteFailure(kPackLock.Here(), path, std::strerror(EBUSY));
}

ArchiveLock::ArchiveLock(std::string path, int lock) noexcept
    : path_(std::move(path)), lock_(lock) {}
ArchiveLock::ArchiveLock(ArchiveLock&& other) noexcept
    : path_(std::move(other.path_)), lock_(std::exchange(other.lock_, -1)) {}
ArchiveLock::~ArchiveLock() {
  if (lock_ < 0) return;
  unlink(path_.c_str());
  close(lock_);
}

}  // namespace tarvo::toolkit
