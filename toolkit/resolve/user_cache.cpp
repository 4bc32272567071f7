#include "toolkit/resolve/user_cache.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "tarvo/format.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kUserCache{"command/resolve/user_cache"};

/// By the XDG base directory rules relative paths are ignored.
fs::path CacheHome() {
  const auto absolute = [](const char* name) -> fs::path {
    const char* value = std::getenv(name);
    return value != nullptr && value[0] == '/' ? value : "";
  };
  if (const fs::path cache = absolute("XDG_CACHE_HOME"); !cache.empty()) return cache;
  const fs::path home = absolute("HOME");
  return home.empty() ? home : home / ".cache";
}

/// `path` with the directories above it, only for this user.
Result<Url> MakePrivate(const fs::path& path) {
  const Url url = Url::FromSystemPath(path.native());
  std::error_code error;
  fs::create_directories(path.parent_path(), error);
  if (mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
    return Error::File(kUserCache.Here(),
                       Format("Could not make \"@\": @", path.native(), std::strerror(errno)), url);
  }
  struct stat found{};
  if (lstat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode) && found.st_uid == geteuid())
    return url;
  return Error::File(kUserCache.Here(),
                     Format("\"@\" is no directory of this user's.", path.native()), url);
}

}  // namespace

Result<UserCache> MakeUserCache(bool wantsNoArchives, bool wantsBuilds) {
  UserCache cache;
  if (!wantsNoArchives && !wantsBuilds) return cache;
  const fs::path home = CacheHome();
  if (home.empty()) {
    return Error::IllegalState(
        kUserCache.Here(),
        "The user has no cache directory (HOME is not set): --archives and --cache are required.");
  }
  const fs::path own = home / "tarvo";
  if (auto made = MakePrivate(own); !made) return made.GetError();
  const auto make = [&own](bool isWanted, const char* name, Url& to) -> Result<void> {
    if (!isWanted) return {};
    Result<Url> made = MakePrivate(own / name);
    if (!made) return made.GetError();
    to = *std::move(made);
    return {};
  };
  if (auto made = make(wantsBuilds, "builds", cache.builds); !made) return made.GetError();
  if (auto made = make(wantsNoArchives, "no-archives", cache.noArchives); !made)
    return made.GetError();
  return cache;
}

}  // namespace tarvo::toolkit
