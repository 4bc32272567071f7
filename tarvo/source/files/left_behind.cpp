#include "files/left_behind.h"

#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <filesystem>
#include <mutex>
#include <set>
#include <system_error>

namespace tarvo {
namespace {

/// f_type of file systems that several machines mount (linux/magic.h, and statfs(2)).
constexpr std::array<std::uint32_t, 8> kSharedFileSystems = {
    0x6969,      // NFS
    0x517B,      // SMB
    0xFF534D42,  // CIFS
    0xFE534D42,  // SMB2
    0x01021997,  // 9P
    0x65735546,  // FUSE
    0x00C36400,  // Ceph
    0x0BD00BD0,  // Lustre
};

bool IsFirstVisit(const std::string& directory, std::string_view kind) {
  static std::mutex mutex;
  // Never destroyed: files may still be written when the process ends.
  static auto* const visited = new std::set<std::string>;
  const std::scoped_lock lock(mutex);
  return visited->insert(std::string(kind) + directory).second;
}

}  // namespace

bool IsLeftBehind(int descriptor) noexcept {
  struct statfs system{};
  struct stat status{};
  if (fstatfs(descriptor, &system) != 0 || fstat(descriptor, &status) != 0) return false;
  const auto type = static_cast<std::uint32_t>(system.f_type);
  if (std::ranges::find(kSharedFileSystems, type) == kSharedFileSystems.end()) return true;
  return std::time(nullptr) - status.st_mtime > kForeignAge;
}

void ForEachPassingName(const std::string& directory, std::string_view kind,
                        const std::function<void(const std::string& name)>& clear) {
  if (!IsFirstVisit(directory, kind)) return;
  std::error_code end;
  std::filesystem::directory_iterator entries(directory, end);
  for (; !end && entries != std::filesystem::directory_iterator(); entries.increment(end)) {
    const std::string name = entries->path().filename().string();
    if (name.starts_with(kPassingName)) clear(name);
  }
}

}  // namespace tarvo
