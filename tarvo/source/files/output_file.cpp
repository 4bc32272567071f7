#include "files/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <random>

#include "files/file_descriptor.h"
#include "files/file_error.h"

namespace tarvo {
namespace {

constexpr SourceFile kOutputFile{"tarvo/source/output_file"};
constexpr std::string_view kWriteAction = "write";
constexpr std::size_t kBufferBytes = 64 * 1024;
constexpr int kNameAttempts = 100;

/// The start of this process's row of names, so that processes seldom try each other's.
std::uint64_t RandomStart() {
  std::random_device random;
  return (std::uint64_t{random()} << 32) | random();
}

/// A name that does not grow with the file's own, which may have the longest length there is.
std::string TemporaryName() {
  static std::atomic<std::uint64_t> next = RandomStart();
  std::array<char, 16> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), ++next, 16);
  return ".tarvo-" + std::string(digits.data(), end.ptr);
}

class TemporaryOutputFile final : public Counted<OutputFile> {
 public:
  TemporaryOutputFile(Url file, std::string path, std::string temporaryPath,
                      FileDescriptor descriptor)
      : file_(std::move(file)),
        path_(std::move(path)),
        temporaryPath_(std::move(temporaryPath)),
        descriptor_(std::move(descriptor)) {
    buffer_.reserve(kBufferBytes);
  }

  Result<void> Write(std::string_view bytes) override {
    if (!descriptor_.IsOpen()) return NotOpen();
    if (buffer_.size() + bytes.size() <= kBufferBytes) {
      buffer_ += bytes;
      return {};
    }
    if (auto flushed = WriteOut(buffer_); !flushed) return flushed;
    buffer_.clear();
    if (bytes.size() >= kBufferBytes) return WriteOut(bytes);
    buffer_ += bytes;
    return {};
  }

  Result<void> Commit() override {
    if (!descriptor_.IsOpen()) return NotOpen();
    if (auto flushed = WriteOut(buffer_); !flushed) return flushed;
    if (!descriptor_.Close() || rename(temporaryPath_.c_str(), path_.c_str()) != 0)
      return FileError(kOutputFile.Here(), kWriteAction, file_, errno);
    temporaryPath_.clear();
    return {};
  }

 private:
  ~TemporaryOutputFile() override {
    if (!temporaryPath_.empty()) unlink(temporaryPath_.c_str());
  }

  /// A part that is missing must never be committed: the first failure closes the file.
  Result<void> WriteOut(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t written =
          Uninterrupted([&] { return write(descriptor_.Get(), bytes.data(), bytes.size()); });
      if (written < 0) {
        const int reason = errno;
        descriptor_.Close();
        return FileError(kOutputFile.Here(), kWriteAction, file_, reason);
      }
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return {};
  }

  [[nodiscard]] Error NotOpen() const {
    return Error::IllegalState(kOutputFile.Here(),
                               "The file is committed already, or writing it failed before.");
  }

  Url file_;
  std::string path_;
  std::string temporaryPath_;
  FileDescriptor descriptor_;
  std::string buffer_;
};

}  // namespace

Result<Ref<OutputFile>> CreateOutputFile(const Url& file) {
  auto path = PathForSystem(kOutputFile.Here(), kWriteAction, file);
  if (!path) return path.GetError();
  for (int attempt = 0;; ++attempt) {
    std::string temporaryPath = file.Parent().Append(TemporaryName()).SystemPath().ToStdString();
    FileDescriptor descriptor(Uninterrupted([&] {
      return open(temporaryPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    }));
    if (descriptor.IsOpen()) {
      return Ref<OutputFile>(Make<TemporaryOutputFile>(
          file, std::move(*path), std::move(temporaryPath), std::move(descriptor)));
    }
    if (errno != EEXIST || attempt == kNameAttempts)
      return FileError(kOutputFile.Here(), kWriteAction, file, errno);
  }
}

}  // namespace tarvo
