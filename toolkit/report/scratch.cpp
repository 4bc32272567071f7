#include "toolkit/report/scratch.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string_view>
#include <system_error>
#include <utility>

#include "tarvo/format.h"

namespace tarvo::report {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kScratch{"toolkit/report/scratch"};

constexpr std::string_view kScratchName = "tarvo-resolve-";
constexpr int kScratchAttempts = 100;

/// A scratch directory that is held locked for as long as its maker uses it, so that it shows when
/// that one was killed.
int OpenLocked(const std::string& directory) {
  const int descriptor = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (descriptor < 0) return -1;
  struct stat status{};
  const bool isOurs = fstat(descriptor, &status) == 0 && status.st_uid == geteuid();
  // A directory that was removed meanwhile has no links.
  if (isOurs && flock(descriptor, LOCK_EX | LOCK_NB) == 0 && fstat(descriptor, &status) == 0 &&
      status.st_nlink != 0)
    return descriptor;
  close(descriptor);
  return -1;
}

/// Removes the scratch directories of killed processes.
void ClearScratch(const fs::path& parent) {
  std::error_code end;
  fs::directory_iterator entries(parent, end);
  for (; !end && entries != fs::directory_iterator(); entries.increment(end)) {
    const std::string& path = entries->path().native();
    if (!std::string_view(path).substr(path.rfind('/') + 1).starts_with(kScratchName)) continue;
    const int descriptor = OpenLocked(path);
    if (descriptor < 0) continue;
    std::error_code ignored;
    fs::remove_all(path, ignored);
    close(descriptor);
  }
}

}  // namespace

Result<Scratch> Scratch::Make() {
  std::error_code none;
  fs::path directory = fs::temp_directory_path(none);
  if (none) directory = "/tmp";
  static std::once_flag isCleared;
  std::call_once(isCleared, ClearScratch, directory);
  std::string scratch;
  int lock = -1;
  // Another process may take it for left behind before it is locked.
  for (int attempt = 0; lock < 0 && attempt < kScratchAttempts; ++attempt) {
    scratch = (directory / (std::string(kScratchName) + "XXXXXX")).string();
    if (mkdtemp(scratch.data()) == nullptr) break;
    lock = OpenLocked(scratch);
    if (lock < 0) rmdir(scratch.c_str());
  }
  if (lock < 0) {
    return Error::File(
        kScratch.Here(),
        Format("Could not make a directory in \"@\": @", directory.string(), std::strerror(errno)),
        Url::FromSystemPath(scratch));
  }
  return Scratch(std::move(scratch), lock);
}

Scratch::Scratch(std::string path, int lock) noexcept : path_(std::move(path)), lock_(lock) {}

Scratch::Scratch(Scratch&& other) noexcept
    : path_(std::exchange(other.path_, {})), lock_(std::exchange(other.lock_, -1)) {}

Scratch::~Scratch() {
  std::error_code ignored;
  if (!path_.empty()) fs::remove_all(path_, ignored);
  if (lock_ >= 0) close(lock_);
}

Result<std::string> LateScratch::Path() {
  const std::scoped_lock lock(mutex_);
  if (!scratch_) {
    Result<Scratch> made = Scratch::Make();
    if (!made) return made.GetError();
    scratch_.emplace(*std::move(made));
  }
  return scratch_->Path();
}

}  // namespace tarvo::report
