#include "toolkit/store/archive_cache.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

constexpr const char* kIdentityName = ".tarvo-archive-";
constexpr const char* kRetiredName = ".tarvo-retired-";
constexpr const char* kWholeArchive = "zip-";
constexpr std::size_t kShownIdentity = 16;

/// A name that may stand in a path: builds come from reports.
bool IsPlain(const std::string& build) {
  return !build.empty() && build != "." && build != ".." &&
         build.find_first_of(std::string("/\0", 2)) == std::string::npos;
}

std::string ReadIdentity(const fs::path& file) {
  std::ifstream stream(file);
  std::string identity;
  std::getline(stream, identity);
  return identity;
}

/// In one step, so that nobody reads half of it.
void WriteIdentity(const fs::path& file, const std::string& identity) {
  static std::atomic<unsigned> count{0};
  const std::string temporary =
      file.native() + "." + std::to_string(getpid()) + "-" + std::to_string(count.fetch_add(1));
  std::ofstream(temporary) << identity << '\n';
  if (std::rename(temporary.c_str(), file.c_str()) != 0) unlink(temporary.c_str());
}

/// Another process may be looking into the directory: it is gone at once, or there as a whole.
void MoveAway(const fs::path& directory, const fs::path& cache) {
  static std::atomic<unsigned> count{0};
  const fs::path retired =
      cache / (kRetiredName + std::to_string(getpid()) + "-" + std::to_string(count.fetch_add(1)));
  std::error_code error;
  fs::rename(directory, retired, error);
  if (!error) fs::remove_all(retired, error);
}

Result<void> Extract(Framework& framework, const std::string& archive, const std::string& to) {
  Result<Ref<ReadArchive>> reader = CreateObject<ReadArchive>(framework, ReadArchive::kZipClassId);
  if (!reader) return reader.GetError();
  if (auto opened = (*reader)->Open(Url::FromSystemPath(archive)); !opened) return opened;
  return (*reader)->Extract(Url::FromSystemPath(to));
}

}  // namespace

void ArchiveCache::Retire(const std::string& build) {
  if (!IsPlain(build)) return;
  const std::scoped_lock lock(mutex_);
  if (!isRetired_.try_emplace(build, true).second) return;
  const auto archives = archives_.Of(build);
  if (archives.empty() || !archives.front().identity.starts_with(kWholeArchive)) return;
  const fs::path cache = cache_.SystemPath().ToStdString();
  const fs::path identity = cache / (kIdentityName + build);
  if (ReadIdentity(identity) == archives.front().identity) {
    // Tells that it is used.
    utimensat(AT_FDCWD, identity.c_str(), nullptr, 0);
    return;
  }
  std::error_code missing;
  if (fs::is_directory(cache / build, missing)) MoveAway(cache / build, cache);
  WriteIdentity(identity, archives.front().identity);
}

std::vector<UnpackedArchive> ArchiveCache::Unpack(Framework& framework, const std::string& build) {
  std::vector<UnpackedArchive> unpacked;
  if (!IsPlain(build)) return unpacked;
  Retire(build);
  const fs::path cache = cache_.SystemPath().ToStdString();
  std::error_code missing;
  for (const ArchiveState& archive : archives_.Of(build)) {
    const std::string name =
        unpacked.empty() ? build : build + '~' + archive.identity.substr(0, kShownIdentity);
    const std::string directory = (cache / name).native();
    const bool isThere = fs::is_directory(directory, missing);
    if (!isThere && !Extract(framework, archive.file, directory)) continue;
    if (isThere) utimensat(AT_FDCWD, directory.c_str(), nullptr, 0);
    unpacked.push_back({directory, ManifestOf(directory)});
  }
  // One whose archive is gone still serves.
  if (unpacked.empty() && fs::is_directory(cache / build, missing))
    unpacked.push_back({(cache / build).native(), ManifestOf((cache / build).native())});
  return unpacked;
}

const Manifest& ArchiveCache::ManifestOf(const std::string& directory) {
  const std::scoped_lock lock(mutex_);
  const auto [manifest, isNew] = manifests_.try_emplace(directory);
  if (isNew) manifest->second = ManifestIn(directory);
  return manifest->second;
}

}  // namespace tarvo::toolkit
