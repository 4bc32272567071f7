#include "files/output_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <array>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <random>

#include "files/file_descriptor.h"
#include "files/file_error.h"
#include "files/left_behind.h"

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
  return std::string(kPassingName) + std::string(digits.data(), end.ptr);
}

/// Of TemporaryName.
bool IsTemporaryName(std::string_view name) {
  const std::string_view digits = name.substr(kPassingName.size());
  return !digits.empty() && digits.size() <= 16 &&
         digits.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

bool IsNamed(int descriptor) noexcept {
  struct stat status{};
  return fstat(descriptor, &status) == 0 && status.st_nlink != 0;
}

/// Removes the file of a killed process: nobody holds its lock.
void ClearFile(const std::string& path) {
  const FileDescriptor file(
      open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status{};
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return;
  if (flock(file.Get(), LOCK_EX | LOCK_NB) == 0 && IsNamed(file.Get()) && IsLeftBehind(file.Get()))
    unlink(path.c_str());
}

void ClearFilesOfKilledProcesses(const std::string& directory) {
  ForEachPassingName(directory, "files ", [&](const std::string& name) {
    if (IsTemporaryName(name)) ClearFile((std::filesystem::path(directory) / name).string());
  });
}

/// A new file, locked; not open, with the reason in errno, when it could not be made. Where the
/// file system knows no locks nobody can take the file for left behind either.
FileDescriptor MakeLocked(const std::string& path) {
  FileDescriptor file(Uninterrupted(
      [&] { return open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666); }));
  if (!file.IsOpen()) return file;
  const bool isTaken = flock(file.Get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  if (!isTaken && IsNamed(file.Get())) return file;
  // Somebody clears it away, who came between the two steps.
  errno = EEXIST;
  return {};
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
    // Keeps the lock until the file has its name, while closing tells what a full disk refused.
    const FileDescriptor lock(fcntl(descriptor_.Get(), F_DUPFD_CLOEXEC, 0));
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
  ClearFilesOfKilledProcesses(file.Parent().SystemPath().ToStdString());
  for (int attempt = 0;; ++attempt) {
    std::string temporaryPath = file.Parent().Append(TemporaryName()).SystemPath().ToStdString();
    FileDescriptor descriptor = MakeLocked(temporaryPath);
    if (descriptor.IsOpen()) {
      return Ref<OutputFile>(Make<TemporaryOutputFile>(
          file, std::move(*path), std::move(temporaryPath), std::move(descriptor)));
    }
    if (errno != EEXIST || attempt == kNameAttempts)
      return FileError(kOutputFile.Here(), kWriteAction, file, errno);
  }
}

}  // namespace tarvo
