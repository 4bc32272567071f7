#include "archive/packed_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include "archive/packed_stream.h"
#include "files/directory_once.h"
#include "files/file_descriptor.h"
#include "files/file_error.h"
#include "tarvo/format.h"
#include "tarvo/packed_file.h"

namespace tarvo {
namespace {

constexpr SourceFile kPackedFile{"tarvo/source/packed_file"};
constexpr std::string_view kUnpackAction = "unpack";

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
    return MakeDirectoryOnce(directory, [&](int tree) { return Unpack(tree); });
  }

 private:
  ~PackedFile() override = default;

  [[nodiscard]] String Text(std::string_view reason) const {
    return Format("Could not @ \"@\": @", kUnpackAction, name_, reason);
  }
  [[nodiscard]] Error Failed(std::string_view reason) const {
    return Error::File(kPackedFile.Here(), Text(reason), name_);
  }
  /// What is wrong with the packed bytes themselves is so at every attempt.
  [[nodiscard]] Error Refused(std::string_view reason) const {
    return {Error::kIllegalArgument, kPackedFile.Here(), Text(reason), name_};
  }

  /// Exactly what is packed, once: a packed file in the packed file stays one.
  Result<void> Unpack(int tree) {
    const auto content = MakeFile(tree, kPackedContent);
    if (!content) return content.GetError();
    std::int64_t size = 0;
    const auto take = [&](std::string_view bytes) -> Result<void> {
      size += static_cast<std::int64_t>(bytes.size());
      return size > limit_ ? TooLarge() : Write(content->Get(), bytes);
    };
    if (lseek(file_.Get(), 0, SEEK_SET) != 0) return Failed(SystemReason());
    const Result<PackedEnd> end = UnpackStream(file_.Get(), take);
    if (!end)
      return end.GetError().Url().IsEmpty() ? Failed(end.GetError().Text()) : end.GetError();
    if (end->damage.empty()) return {};
    if (size == 0) return Refused(end->damage);
    const auto damage = MakeFile(tree, kPackedDamage);
    return damage ? Write(damage->Get(), end->damage) : damage.GetError();
  }

  Result<FileDescriptor> MakeFile(int tree, std::string_view name) {
    FileDescriptor file(
        openat(tree, std::string(name).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!file.IsOpen()) return Failed(SystemReason());
    return file;
  }

  [[nodiscard]] Error TooLarge() const {
    return Refused(Format(
        "it holds more than @ bytes (kMaximumUnpackedBytes, g_archiveMaximumBytes)", limit_));
  }

  Result<void> Write(int content, std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t written =
          Uninterrupted([&] { return write(content, bytes.data(), bytes.size()); });
      if (written < 0) return Failed(SystemReason());
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return {};
  }

  [[nodiscard]] static std::string SystemReason() { return std::generic_category().message(errno); }

  const std::int64_t limit_;
  Url name_;
  FileDescriptor file_;
};

}  // namespace

Ref<ReadArchive> CreatePackedFile(const ArchiveLimits& limits) { return Make<PackedFile>(limits); }

}  // namespace tarvo
