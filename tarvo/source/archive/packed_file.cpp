#include "archive/packed_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>

#include "archive/archive_library.h"
#include "files/directory_once.h"
#include "files/file_descriptor.h"
#include "files/file_error.h"
#include "tarvo/format.h"
#include "tarvo/packed_file.h"

namespace tarvo {
namespace {

constexpr SourceFile kPackedFile{"tarvo/source/packed_file"};
constexpr std::string_view kUnpackAction = "unpack";
constexpr std::size_t kInputBytes = 64 * 1024;

class PackedFile final : public Counted<ReadArchive> {
 public:
  explicit PackedFile(const ArchiveLimits& limits)
      : limit_(std::min(limits.bytes, kMaximumUnpackedBytes)) {}

  Result<void> Open(const Url& file) override {
    const auto path = PathForSystem(kPackedFile.Here(), kUnpackAction, file);
    if (!path) return path.GetError();
    FileDescriptor opened(Uninterrupted(
        [&] { return open(path->c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
    struct stat status{};
    if (!opened.IsOpen() || fstat(opened.Get(), &status) != 0)
      return FileError(kPackedFile.Here(), kUnpackAction, file, errno);
    if (!S_ISREG(status.st_mode)) return Failed("it is not a regular file");
    name_ = file;
    file_ = std::move(opened);
    return {};
  }

  Result<void> Extract(const Url& directory) override {
    if (!file_.IsOpen()) return Error::IllegalState(kPackedFile.Here(), "No file is open.");
    const auto loaded = ArchiveLibrary::Load();
    if (!loaded) return loaded.GetError();
    return MakeDirectoryOnce(directory, [&](int tree) { return Unpack(**loaded, tree); });
  }

 private:
  ~PackedFile() override = default;

  [[nodiscard]] Error Failed(std::string_view reason) const {
    return Error::File(kPackedFile.Here(),
                       Format("Could not @ \"@\": @", kUnpackAction, name_, reason), name_);
  }

  /// Exactly what is packed, once: a packed file in the packed file stays one.
  Result<void> Unpack(const ArchiveLibrary& library, int tree) {
    const std::unique_ptr<archive, decltype(library.readFree)> reader(library.readNew(),
                                                                      library.readFree);
    if (reader == nullptr) return Error::OutOfMemory(kPackedFile.Here());
    archive_entry* entry = nullptr;
    const bool isOpen =
        lseek(file_.Get(), 0, SEEK_SET) == 0 && library.supportGzip(reader.get()) == ARCHIVE_OK &&
        library.supportXz(reader.get()) == ARCHIVE_OK &&
        library.supportRaw(reader.get()) == ARCHIVE_OK &&
        library.openDescriptor(reader.get(), file_.Get(), kInputBytes) == ARCHIVE_OK &&
        library.nextHeader(reader.get(), &entry) == ARCHIVE_OK;
    if (!isOpen) return LibraryError(library, reader.get());
    const FileDescriptor content(openat(tree, std::string(kPackedContent).c_str(),
                                        O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!content.IsOpen()) return Failed(std::generic_category().message(errno));
    return Copy(library, reader.get(), content.Get());
  }

  Result<void> Copy(const ArchiveLibrary& library, archive* reader, int content) {
    std::int64_t size = 0;
    for (;;) {
      const void* bytes = nullptr;
      std::size_t count = 0;
      la_int64_t offset = 0;
      const int status = library.readBlock(reader, &bytes, &count, &offset);
      if (status == ARCHIVE_EOF) return {};
      if (status != ARCHIVE_OK) return LibraryError(library, reader);
      size += static_cast<std::int64_t>(count);
      if (size > limit_) {
        return Failed(
            Format("it holds more than @ bytes (kMaximumUnpackedBytes, "
                   "g_archiveMaximumBytes)",
                   limit_));
      }
      if (auto written = Write(content, {static_cast<const char*>(bytes), count}); !written)
        return written;
    }
  }

  Result<void> Write(int content, std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t written =
          Uninterrupted([&] { return write(content, bytes.data(), bytes.size()); });
      if (written < 0) return Failed(std::generic_category().message(errno));
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return {};
  }

  [[nodiscard]] Error LibraryError(const ArchiveLibrary& library, archive* reader) const {
    const char* text = library.errorText(reader);
    return Failed(text == nullptr ? "it is damaged or cut off" : text);
  }

  const std::int64_t limit_;
  Url name_;
  FileDescriptor file_;
};

}  // namespace

Ref<ReadArchive> CreatePackedFile(const ArchiveLimits& limits) { return Make<PackedFile>(limits); }

}  // namespace tarvo
