#include "crash_context/proc_files.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

namespace tarvo {
namespace {

/// Longer than the longest line of `status` that is looked for.
constexpr std::size_t kStatusOverlap = 64;
/// No line of `maps` is shorter.
constexpr std::size_t kShortestMapsLine = 40;

/// What stands behind `label` and its blanks in a `status` text; empty when it is not there.
std::string_view StatusValue(std::string_view status, std::string_view label) {
  const std::size_t at = status.find(label);
  if (at == std::string_view::npos) return {};
  status.remove_prefix(at + label.size());
  while (!status.empty() && (status.front() == ' ' || status.front() == '\t'))
    status.remove_prefix(1);
  return status;
}

}  // namespace

std::uint64_t TakeHexadecimal(std::string_view& text) {
  std::uint64_t value = 0;
  while (!text.empty()) {
    const char c = text.front();
    unsigned digit = 0;
    if (c >= '0' && c <= '9') {
      digit = static_cast<unsigned>(c - '0');
    } else if (c >= 'a' && c <= 'f') {
      digit = static_cast<unsigned>(c - 'a' + 10);
    } else {
      break;
    }
    value = value << 4 | digit;
    text.remove_prefix(1);
  }
  return value;
}

int OpenRaw(const char* path, int extraFlags) {
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDONLY | O_CLOEXEC | extraFlags));
}

void CloseRaw(int file) { syscall(SYS_close, file); }

ssize_t ReadRaw(int file, std::span<char> buffer) {
  std::size_t size = 0;
  while (size < buffer.size()) {
    const long read = syscall(SYS_read, file, buffer.data() + size, buffer.size() - size);
    if (read < 0 && errno == EINTR) continue;
    if (read < 0) return size == 0 ? -1 : static_cast<ssize_t>(size);
    if (read == 0) break;
    size += static_cast<std::size_t>(read);
  }
  return static_cast<ssize_t>(size);
}

pid_t ToNumber(const char* text) {
  pid_t number = 0;
  for (; *text >= '0' && *text <= '9'; ++text) number = 10 * number + (*text - '0');
  return *text == '\0' ? number : 0;
}

TextBuffer<64> TaskPath(pid_t tid, const char* name) {
  TextBuffer<64> path;
  path.Append("/proc/self/task/");
  path.AppendDecimal(tid);
  path.Append('/');
  path.Append(name);
  return path;
}

ThreadStatus ReadThreadStatus(pid_t tid) {
  const int file = OpenRaw(TaskPath(tid, "status").Text());
  if (file < 0) return {};
  // Read to the line that is wanted: the list of supplementary groups before it has no limit worth
  // a buffer.
  ThreadStatus result{.exists = true};
  char buffer[2048];
  std::size_t held = 0;
  for (;;) {
    const ssize_t read = ReadRaw(file, std::span(buffer).subspan(held));
    if (read <= 0) break;
    const std::string_view status(buffer, held + static_cast<std::size_t>(read));
    const std::string_view state = StatusValue(status, "\nState:");
    if (state.starts_with('Z') || state.starts_with('X')) result.ended = true;
    std::string_view blocked = StatusValue(status, "\nSigBlk:");
    if (blocked.size() > 16) {
      result.blockedSignals = TakeHexadecimal(blocked);
      break;
    }
    held = std::min(status.size(), kStatusOverlap);
    memmove(buffer, status.data() + status.size() - held, held);
  }
  CloseRaw(file);
  return result;
}

MappingReader::MappingReader() : file_(OpenRaw("/proc/self/maps")) {}

MappingReader::~MappingReader() {
  if (file_ >= 0) CloseRaw(file_);
}

bool MappingReader::Fill() {
  const std::size_t held = rest_.size();
  memmove(buffer_, rest_.data(), held);
  const ssize_t read = file_ < 0 ? 0 : ReadRaw(file_, std::span(buffer_).subspan(held));
  rest_ = {buffer_, held + static_cast<std::size_t>(read > 0 ? read : 0)};
  return read > 0;
}

bool MappingReader::SkipLine() {
  for (;;) {
    const std::size_t lineEnd = rest_.find('\n');
    if (lineEnd != std::string_view::npos) {
      rest_.remove_prefix(lineEnd + 1);
      return true;
    }
    rest_ = {};
    if (!Fill()) return false;
  }
}

bool MappingReader::Next(Mapping& mapping) {
  // "start-end rwxp …"; what follows the permissions is skipped, however long it is.
  while (rest_.size() < kShortestMapsLine)
    if (!Fill()) return false;
  mapping.start = TakeHexadecimal(rest_);
  rest_.remove_prefix(1);
  mapping.end = TakeHexadecimal(rest_);
  mapping.isExecutable = rest_.size() > 3 && rest_[3] == 'x';
  return SkipLine();
}

}  // namespace tarvo
