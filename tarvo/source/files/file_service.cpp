#include "files/file_service.h"

#include <sys/stat.h>

#include <filesystem>

#include "files/directory_browser.h"
#include "files/file_error.h"
#include "files/file_reading.h"
#include "files/output_file.h"

namespace tarvo {
namespace {

constexpr SourceFile kFileService{"tarvo/source/file_service"};

}  // namespace

FileKind Files::Detect(const Url& url) {
  const auto path = PathForSystem(kFileService.Here(), "look at", url);
  struct stat status{};
  if (!path || stat(path->c_str(), &status) != 0) return FileKind::Nothing;
  if (S_ISREG(status.st_mode)) return FileKind::File;
  return S_ISDIR(status.st_mode) ? FileKind::Directory : FileKind::Other;
}

Result<void> Files::CreateDirectory(const Url& url) {
  constexpr std::string_view kAction = "make the directory";
  const auto path = PathForSystem(kFileService.Here(), kAction, url);
  if (!path) return path.GetError();
  std::error_code error;
  std::filesystem::create_directories(*path, error);
  if (error) return FileError(kFileService.Here(), kAction, url, error.value());
  return {};
}

Result<Ref<BrowseIterator>> Files::Browse(const Url& directory) {
  return BrowseDirectory(directory);
}

Result<String> Files::ReadText(const Url& file) { return ReadWholeFile(file); }

Result<String> Files::ReadStart(const Url& file, std::size_t size) {
  return ReadStartOfFile(file, size);
}

Result<Ref<OutputFile>> Files::Create(const Url& file) { return CreateOutputFile(file); }

}  // namespace tarvo
