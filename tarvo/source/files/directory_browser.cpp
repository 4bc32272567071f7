#include "files/directory_browser.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <memory>

#include "files/file_error.h"

namespace tarvo {
namespace {

constexpr SourceFile kDirectoryBrowser{"tarvo/source/directory_browser"};
constexpr std::string_view kListAction = "list";

struct CloseDirectory {
  void operator()(DIR* stream) const noexcept { closedir(stream); }
};
using DirectoryStream = std::unique_ptr<DIR, CloseDirectory>;

/// What an entry is by itself (`flags` AT_SYMLINK_NOFOLLOW) or by what it leads to (0); 0 when that
/// cannot be told.
mode_t TypeOf(DIR* stream, const dirent& entry, int flags) noexcept {
  struct stat status{};
  if (fstatat(dirfd(stream), entry.d_name, &status, flags) != 0) return 0;
  return status.st_mode & S_IFMT;
}

std::uint32_t AttributesOf(DIR* stream, const dirent& entry) noexcept {
  const std::uint32_t hidden = entry.d_name[0] == '.' ? kSkippedAttribute : 0;
  // Some file systems do not tell the type with the name.
  const mode_t type = entry.d_type == DT_UNKNOWN ? TypeOf(stream, entry, AT_SYMLINK_NOFOLLOW)
                                                 : static_cast<mode_t>(DTTOIF(entry.d_type));
  if (type == S_IFDIR) return kDirectoryAttribute | hidden;
  const bool isFile = type == S_IFREG || (type == S_IFLNK && TypeOf(stream, entry, 0) == S_IFREG);
  return isFile ? hidden : kSkippedAttribute;
}

class DirectoryBrowser final : public Counted<BrowseIterator> {
 public:
  DirectoryBrowser(Url directory, DirectoryStream stream) noexcept
      : directory_(std::move(directory)), stream_(std::move(stream)) {}

  Result<bool> Next(DirectoryEntry& entry) override {
    for (;;) {
      errno = 0;
      const dirent* found = readdir(stream_.get());
      if (found == nullptr) {
        if (errno != 0) return FileError(kDirectoryBrowser.Here(), kListAction, directory_, errno);
        return false;
      }
      const std::string_view name = found->d_name;
      if (name == "." || name == "..") continue;
      entry = {.url = directory_.Append(name),
               .name = name,
               .attributes = AttributesOf(stream_.get(), *found)};
      return true;
    }
  }

 private:
  ~DirectoryBrowser() override = default;

  Url directory_;
  DirectoryStream stream_;
};

}  // namespace

Result<Ref<BrowseIterator>> BrowseDirectory(const Url& directory) {
  const auto path = PathForSystem(kDirectoryBrowser.Here(), kListAction, directory);
  if (!path) return path.GetError();
  DirectoryStream stream(opendir(path->c_str()));
  if (stream == nullptr) return FileError(kDirectoryBrowser.Here(), kListAction, directory, errno);
  return Ref<BrowseIterator>(Make<DirectoryBrowser>(directory, std::move(stream)));
}

}  // namespace tarvo
