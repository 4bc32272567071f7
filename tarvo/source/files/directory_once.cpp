#include "files/directory_once.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

#include "files/file_descriptor.h"
#include "files/file_error.h"
#include "files/left_behind.h"

namespace tarvo {
namespace {

constexpr SourceFile kDirectoryOnce{"tarvo/source/directory_once"};
constexpr std::string_view kMakeAction = "make the directory";
constexpr std::string_view kWorkName = ".tarvo-making-";
constexpr const char* kLock = "lock";
constexpr const char* kTree = "tree";
constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

/// FNV-1a: the same in every process, and two names that share one only wait for each other.
std::uint64_t Hash(std::string_view name) noexcept {
  std::uint64_t hash = 0xCBF29CE484222325U;
  for (const char c : name) hash = (hash ^ static_cast<std::uint8_t>(c)) * 0x100000001B3U;
  return hash;
}

/// The working directory's path; its name does not grow with the directory's own, which may have
/// the longest length there is.
std::string WorkPath(const Url& directory) {
  std::array<char, 16> digits;
  const auto end =
      std::to_chars(digits.data(), digits.data() + digits.size(), Hash(directory.Name()), 16);
  return directory.Parent()
      .Append(std::string(kWorkName) + std::string(digits.data(), end.ptr))
      .SystemPath()
      .ToStdString();
}

bool IsDirectory(const std::string& path) noexcept {
  struct stat status{};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// The working directory of one maker. Goes, with all that is in it, if it was locked.
class WorkDirectory {
 public:
  enum class Outcome {
    Locked,
    Gone,   ///< the last maker has just cleared it away: try again
    Failed  ///< with the reason in errno
  };

  explicit WorkDirectory(std::string path) : path_(std::move(path)) {}
  WorkDirectory(const WorkDirectory&) = delete;
  WorkDirectory& operator=(const WorkDirectory&) = delete;
  ~WorkDirectory() {
    if (!lock_.IsOpen()) return;
    (void)RemoveTree();  // what cannot be removed stays
    // Removed before the lock is dropped: whoever waits for it finds that it is no longer the file
    // of that name, and starts again.
    unlinkat(directory_.Get(), kLock, 0);
    rmdir(path_.c_str());
  }

  /// Waits until no other maker has it.
  Outcome Lock() {
    if (mkdir(path_.c_str(), 0777) != 0 && errno != EEXIST) return Outcome::Failed;
    directory_ = FileDescriptor(open(path_.c_str(), kDirectoryFlags));
    if (!directory_.IsOpen()) return GoneOrFailed();
    constexpr int kFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC;
    FileDescriptor lock(openat(directory_.Get(), kLock, kFlags, 0666));
    if (!lock.IsOpen()) return GoneOrFailed();
    if (Uninterrupted([&] { return flock(lock.Get(), LOCK_EX); }) != 0) return Outcome::Failed;
    return Keep(std::move(lock));
  }

  /// Takes it where its maker is gone, and so clears it away in the end.
  void LockIfLeftBehind() {
    directory_ = FileDescriptor(open(path_.c_str(), kDirectoryFlags));
    if (!directory_.IsOpen()) return;
    FileDescriptor lock(openat(directory_.Get(), kLock, O_RDWR | O_NOFOLLOW | O_CLOEXEC));
    if (!lock.IsOpen()) {
      // Killed before it made the lock; one that lives finds the directory gone and starts again.
      if (errno == ENOENT && IsLeftBehind(directory_.Get())) rmdir(path_.c_str());
    } else if (flock(lock.Get(), LOCK_EX | LOCK_NB) == 0 && IsLeftBehind(lock.Get())) {
      static_cast<void>(Keep(std::move(lock)));
    }
  }

  /// The empty tree to fill; not open, with the reason in errno, when it could not be made.
  [[nodiscard]] FileDescriptor MakeTree() {
    if (const std::error_code error = RemoveTree()) {
      errno = error.value();
      return {};
    }
    if (mkdirat(directory_.Get(), kTree, 0777) != 0) return {};
    return FileDescriptor(openat(directory_.Get(), kTree, kDirectoryFlags));
  }

  [[nodiscard]] bool RenameTree(const std::string& path) {
    return renameat(directory_.Get(), kTree, AT_FDCWD, path.c_str()) == 0;
  }

 private:
  /// Makes `lock` this one's, if it is still the file of its name.
  Outcome Keep(FileDescriptor lock) {
    struct stat locked{};
    struct stat named{};
    if (fstat(lock.Get(), &locked) != 0) return Outcome::Failed;
    if (fstatat(directory_.Get(), kLock, &named, AT_SYMLINK_NOFOLLOW) != 0) return GoneOrFailed();
    if (locked.st_ino != named.st_ino) return Outcome::Gone;
    lock_ = std::move(lock);
    return Outcome::Locked;
  }

  static Outcome GoneOrFailed() { return errno == ENOENT ? Outcome::Gone : Outcome::Failed; }

  std::error_code RemoveTree() {
    std::error_code error;
    std::filesystem::remove_all(path_ + '/' + kTree, error);
    return error;
  }

  const std::string path_;
  FileDescriptor directory_;
  FileDescriptor lock_;
};

Result<void> Make(WorkDirectory& work, const Url& directory, const std::string& path,
                  const FillDirectory& fill) {
  if (IsDirectory(path)) return {};
  const FileDescriptor tree = work.MakeTree();
  if (!tree.IsOpen()) return FileError(kDirectoryOnce.Here(), kMakeAction, directory, errno);
  if (auto filled = fill(tree.Get()); !filled) return filled;
  if (!work.RenameTree(path))
    return FileError(kDirectoryOnce.Here(), kMakeAction, directory, errno);
  return {};
}

/// Trees take room until somebody makes the same directory again, which may never be.
void ClearTreesOfKilledProcesses(const std::string& parent) {
  ForEachPassingName(parent, "trees ", [&](const std::string& name) {
    if (!name.starts_with(kWorkName)) return;
    WorkDirectory left((std::filesystem::path(parent) / name).string());
    left.LockIfLeftBehind();
  });
}

Url WithoutTrailingSlashes(const Url& url) {
  std::string_view path = url.SystemPath();
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  return Url::FromSystemPath(url.SystemPath().Slice(0, path.size()));
}

}  // namespace

Result<void> MakeDirectoryOnce(const Url& given, const FillDirectory& fill) {
  const Url directory = WithoutTrailingSlashes(given);
  const Result<std::string> path = PathForSystem(kDirectoryOnce.Here(), kMakeAction, directory);
  if (!path) return path.GetError();
  if (IsDirectory(*path)) return {};
  std::error_code error;
  std::filesystem::create_directories(directory.Parent().SystemPath().ToStdString(), error);
  if (error) return FileError(kDirectoryOnce.Here(), kMakeAction, directory, error.value());
  ClearTreesOfKilledProcesses(directory.Parent().SystemPath().ToStdString());
  for (;;) {
    WorkDirectory work(WorkPath(directory));
    const WorkDirectory::Outcome outcome = work.Lock();
    if (outcome == WorkDirectory::Outcome::Failed)
      return FileError(kDirectoryOnce.Here(), kMakeAction, directory, errno);
    if (outcome == WorkDirectory::Outcome::Locked) return Make(work, directory, *path, fill);
    if (IsDirectory(*path)) return {};
  }
}

}  // namespace tarvo
