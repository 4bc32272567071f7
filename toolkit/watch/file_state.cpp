#include "toolkit/watch/file_state.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <string_view>

#include "files/file_descriptor.h"

namespace tarvo::toolkit {
namespace {

constexpr std::int64_t kNanoseconds = 1'000'000'000;

}  // namespace

std::optional<FileState> LookAtFile(const std::string& path) {
  struct stat status{};
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return FileState{.size = static_cast<std::uint64_t>(status.st_size),
                   .time = status.st_mtim.tv_sec * kNanoseconds + status.st_mtim.tv_nsec,
                   .number = status.st_ino};
}

ReportEnd LookAtEnd(const std::string& path) {
  if (path.ends_with(".gz") || path.ends_with(".xz")) return ReportEnd::Hidden;
  const FileDescriptor file(
      Uninterrupted([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
  struct stat status{};
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode))
    return ReportEnd::Missing;
  std::array<char, 64> bytes{};
  const auto size = static_cast<off_t>(bytes.size());
  const off_t from = status.st_size > size ? status.st_size - size : 0;
  const ssize_t count =
      Uninterrupted([&] { return pread(file.Get(), bytes.data(), bytes.size(), from); });
  std::string_view end(bytes.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
  if (end.find('\0') != std::string_view::npos) return ReportEnd::Hidden;
  end = end.substr(0, end.find_last_not_of(" \t\r\n") + 1);
  return end == "}" || end.ends_with("\n}") || end.ends_with("\r}") ? ReportEnd::Seen
                                                                    : ReportEnd::Missing;
}

}  // namespace tarvo::toolkit
