#include "index/index_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <thread>
#include <utility>

#include "source.h"
#include "tarvo/format.h"

namespace tarvo::symbolreader {
namespace {

namespace fs = std::filesystem;

constexpr auto kLockInterval = std::chrono::milliseconds(10);

Error NotWritable(SourceLocation where, const std::string& directory, int reason) {
  return Error::File(where,
                     Format("The index directory @ cannot be used: @.", directory,
                            std::generic_category().message(reason)),
                     Url::FromSystemPath(directory));
}

/// Makes the directory with its parents; what is made is the user's own.
int MakeDirectory(const fs::path& directory) {
  std::error_code error;
  if (fs::is_directory(directory, error)) return 0;
  if (directory.has_relative_path() && directory.has_parent_path() &&
      directory.parent_path() != directory) {
    if (const int reason = MakeDirectory(directory.parent_path())) return reason;
  }
  return mkdir(directory.c_str(), 0700) == 0 || errno == EEXIST ? 0 : errno;
}

}  // namespace

std::string IndexStore::Path(std::string_view suffix) const {
  return directory_ + "/" + key_ + std::string(suffix);
}

std::string IndexStore::TemporaryPath() const {
  static std::atomic<unsigned> count{0};
  return Path("." + std::to_string(getpid()) + "-" + std::to_string(count.fetch_add(1)) + ".tmp");
}

Result<IndexStore::Lock> IndexStore::TakeLock(std::chrono::seconds patience) const {
  if (const int reason = MakeDirectory(directory_))
    return NotWritable(kSource.Here(), directory_, reason);
  const std::string path = Path(".lock");
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
  if (file < 0) return NotWritable(kSource.Here(), directory_, errno);
  Lock lock(file, path);
  const auto end = std::chrono::steady_clock::now() + patience;
  while (flock(file, LOCK_EX | LOCK_NB) != 0) {
    const int reason = errno;
    // A file system without locks: two may then make one index, and the later one stays.
    if (reason != EWOULDBLOCK && reason != EINTR) break;
    if (std::chrono::steady_clock::now() >= end)
      return NotWritable(kSource.Here(), directory_, ETIMEDOUT);
    std::this_thread::sleep_for(kLockInterval);
  }
  return lock;
}

void IndexStore::RemoveLeftovers() const {
  std::error_code error;
  for (auto entry = fs::directory_iterator(directory_, error);
       !error && entry != fs::directory_iterator(); entry.increment(error)) {
    const std::string name = entry->path().filename();
    if (name.starts_with(key_ + ".") && name.ends_with(".tmp")) unlink(entry->path().c_str());
  }
}

bool IndexStore::Publish(const std::string& temporaryPath) const {
  return std::rename(temporaryPath.c_str(), IndexPath().c_str()) == 0;
}

void IndexStore::RememberFailure(const std::string& limits, const Failure& failure) const {
  const std::string temporary = TemporaryPath();
  {
    std::ofstream file(temporary);
    file << limits << '\n' << failure.reason << '\n';
    for (const MissingFile& part : failure.parts) file << Encode(part);
  }
  if (std::rename(temporary.c_str(), Path(".failed").c_str()) != 0) unlink(temporary.c_str());
}

std::optional<IndexStore::Failure> IndexStore::RememberedFailure(
    const std::string& limits, const std::string& debugFile) const {
  std::ifstream file(Path(".failed"));
  std::string rememberedLimits;
  Failure failure;
  std::getline(file, rememberedLimits);
  std::getline(file, failure.reason);
  if (!file || rememberedLimits != limits) return std::nullopt;
  const std::string parts(std::istreambuf_iterator<char>(file), {});
  failure.parts = DecodeFiles({reinterpret_cast<const std::uint8_t*>(parts.data()), parts.size()});
  if (HasOneCome(failure.parts, debugFile)) return std::nullopt;
  return failure;
}

IndexStore::Lock::Lock(Lock&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)), path_(std::move(other.path_)) {}

/// The name goes first: who opens the file afterwards makes a new one and finds the work done; who
/// has it open already gets the lock and finds the same.
IndexStore::Lock::~Lock() {
  if (descriptor_ < 0) return;
  unlink(path_.c_str());
  close(descriptor_);
}

}  // namespace tarvo::symbolreader
