#include "archive/zip_archive.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <utility>

#include "archive/zip_extraction.h"
#include "files/directory_once.h"
#include "files/file_descriptor.h"
#include "files/file_error.h"
#include "tarvo/format.h"

namespace tarvo {
namespace {

constexpr SourceFile kZipArchive{"tarvo/source/zip_archive"};
constexpr std::string_view kAction = "open the archive";

class ZipArchive final : public Counted<ReadArchive> {
 public:
  explicit ZipArchive(const ArchiveLimits& limits) : limits_(limits) {}

  Result<void> Open(const Url& archive) override {
    const auto path = PathForSystem(kZipArchive.Here(), kAction, archive);
    if (!path) return path.GetError();
    // Not blocking: opening a pipe would wait for its writer.
    FileDescriptor file(Uninterrupted(
        [&] { return open(path->c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
    struct stat status{};
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0)
      return FileError(kZipArchive.Here(), kAction, archive, errno);
    if (!S_ISREG(status.st_mode)) {
      return Error::File(kZipArchive.Here(),
                         Format("Could not @ \"@\": it is not a regular file", kAction, archive),
                         archive);
    }
    archive_ = archive;
    file_ = std::move(file);
    return {};
  }

  Result<void> Extract(const Url& directory) override {
    if (!file_.IsOpen()) return Error::IllegalState(kZipArchive.Here(), "No archive is open.");
    return MakeDirectoryOnce(directory, [&](int tree) {
      return ExtractZip(file_.Get(), archive_, tree, directory, limits_, progress_);
    });
  }

  ArchiveProgress Progress() const override { return {progress_.done, progress_.all}; }

 private:
  ~ZipArchive() override = default;

  const ArchiveLimits limits_;
  Url archive_;
  FileDescriptor file_;
  ExtractionProgress progress_;
};

}  // namespace

Ref<ReadArchive> CreateZipArchive(const ArchiveLimits& limits) { return Make<ZipArchive>(limits); }

}  // namespace tarvo
