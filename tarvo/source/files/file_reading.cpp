#include "files/file_reading.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "files/file_descriptor.h"
#include "files/file_error.h"
#include "tarvo/format.h"

namespace tarvo {
namespace {

constexpr SourceFile kFileReading{"tarvo/source/file_reading"};
constexpr std::string_view kReadAction = "read";
constexpr std::size_t kFirstRoom = 16 * 1024;

/// Reads until `room` bytes are there or the file ends; a negative number on failure.
ssize_t Fill(int descriptor, char* to, std::size_t room) noexcept {
  std::size_t size = 0;
  while (size < room) {
    const ssize_t got = Uninterrupted([&] { return read(descriptor, to + size, room - size); });
    if (got < 0) return got;
    if (got == 0) break;
    size += static_cast<std::size_t>(got);
  }
  return static_cast<ssize_t>(size);
}

Error TooLarge(const Url& file, std::size_t limit) {
  return Error::File(
      kFileReading.Here(),
      Format("Could not @ \"@\": it holds more than @ bytes", kReadAction, file, limit), file);
}

/// Reads in one buffer that is larger than the file by what tells its end; where the file turns out
/// to be larger than said, in ever larger ones.
Result<String> ReadAll(int descriptor, const Url& file, std::size_t expected, std::size_t limit) {
  String content;
  std::size_t room = std::max(expected, kFirstRoom) + 1;
  while (content.Size() <= limit) {
    ssize_t got = 0;
    const String grown = String::Build(room, [&](char* to) {
      std::memcpy(to, content.View().data(), content.Size());
      got = Fill(descriptor, to + content.Size(), room - content.Size());
      return content.Size() + static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    });
    if (got < 0) return FileError(kFileReading.Here(), kReadAction, file, errno);
    content = grown;
    if (content.Size() < room && content.Size() <= limit) return content;
    room *= 2;
  }
  return TooLarge(file, limit);
}

}  // namespace

Result<String> ReadWholeFile(const Url& file, std::size_t limit) try {
  const auto path = PathForSystem(kFileReading.Here(), kReadAction, file);
  if (!path) return path.GetError();
  const FileDescriptor descriptor(
      Uninterrupted([&] { return open(path->c_str(), O_RDONLY | O_CLOEXEC); }));
  struct stat status{};
  if (!descriptor.IsOpen() || fstat(descriptor.Get(), &status) != 0)
    return FileError(kFileReading.Here(), kReadAction, file, errno);
  if (S_ISDIR(status.st_mode)) return FileError(kFileReading.Here(), kReadAction, file, EISDIR);
  const auto size = static_cast<std::size_t>(std::max<off_t>(status.st_size, 0));
  if (size > limit) return TooLarge(file, limit);
  return ReadAll(descriptor.Get(), file, size, limit);
} catch (const std::bad_alloc&) {
  return Error::OutOfMemory(kFileReading.Here());
}

Result<String> ReadStartOfFile(const Url& file, std::size_t size) try {
  const auto path = PathForSystem(kFileReading.Here(), kReadAction, file);
  if (!path) return path.GetError();
  struct stat status{};
  if (stat(path->c_str(), &status) != 0)
    return FileError(kFileReading.Here(), kReadAction, file, errno);
  if (!S_ISREG(status.st_mode)) return String();
  const FileDescriptor descriptor(
      Uninterrupted([&] { return open(path->c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
  if (!descriptor.IsOpen()) return FileError(kFileReading.Here(), kReadAction, file, errno);
  ssize_t got = 0;
  String start = String::Build(size, [&](char* to) {
    got = Fill(descriptor.Get(), to, size);
    return static_cast<std::size_t>(std::max<ssize_t>(got, 0));
  });
  if (got < 0) return FileError(kFileReading.Here(), kReadAction, file, errno);
  return start;
} catch (const std::bad_alloc&) {
  return Error::OutOfMemory(kFileReading.Here());
}

}  // namespace tarvo
