#include "legacycrashlog/report_stream.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <stdio_ext.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string_view>

#include "crash_context/held_directory.h"

namespace tarvo::crashhandler {
namespace {

std::FILE* g_stream = nullptr;
char g_buffer[16 * 1024];
int g_descriptor = -1;
HeldDirectory g_folder;

/// Paths there mean another file in another process.
constexpr std::string_view kProcessFiles = "/proc/";

/// The name of the file in its folder, and the folder: the held one, or where relative paths start.
struct Place {
  int folder = AT_FDCWD;
  const char* name = nullptr;
};

Place PlaceOf(const char* path) {
  const int folder = g_folder.Descriptor();
  if (folder < 0) return {AT_FDCWD, path};
  const char* slash = strrchr(path, '/');
  return {folder, slash == nullptr ? path : slash + 1};
}

/// The stream's way to the system: all bytes, or an error. A standard error that somebody made
/// non-blocking is waited for like any other.
ssize_t WriteAll(void*, const char* bytes, std::size_t size) {
  std::size_t written = 0;
  while (written < size) {
    const ssize_t count = write(g_descriptor, bytes + written, size - written);
    if (count >= 0) {
      written += static_cast<std::size_t>(count);
    } else if (errno == EAGAIN) {
      pollfd wait{g_descriptor, POLLOUT, 0};
      poll(&wait, 1, -1);
    } else if (errno != EINTR) {
      return 0;
    }
  }
  return static_cast<ssize_t>(size);
}

std::FILE* Use(int descriptor) {
  g_descriptor = descriptor;
  clearerr_unlocked(g_stream);
  __fpurge(g_stream);
  return g_stream;
}

void FlushUnlessHeld(std::FILE* stream) {
  if (ftrylockfile(stream) != 0) return;
  fflush_unlocked(stream);
  funlockfile(stream);
}

}  // namespace

bool PrepareReportStream() {
  if (g_stream != nullptr) return true;
  g_stream = fopencookie(nullptr, "w",
                         {.read = nullptr, .write = WriteAll, .seek = nullptr, .close = nullptr});
  if (g_stream == nullptr) return false;
  setvbuf(g_stream, g_buffer, _IOFBF, sizeof(g_buffer));
  return true;
}

void HoldReportFolder(const char* path) {
  if (std::string_view(path).starts_with(kProcessFiles)) return;
  char folder[PATH_MAX] = ".";
  const char* slash = strrchr(path, '/');
  const std::size_t size = slash == path ? 1 : static_cast<std::size_t>(slash - path);
  if (slash != nullptr && size < sizeof(folder)) {
    memcpy(folder, path, size);
    folder[size] = '\0';
  }
  g_folder.Hold(folder);
}

std::FILE* OpenReportFile(const char* path) {
  const Place place = PlaceOf(path);
  const int file =
      openat(place.folder, place.name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, 0666);
  return file < 0 ? nullptr : Use(file);
}

int ReopenReportFile(const char* path) {
  const Place place = PlaceOf(path);
  for (const int access : {O_RDWR, O_RDONLY}) {
    // A pipe in its place must not hold up the end.
    const int file = openat(place.folder, place.name, access | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (file < 0) continue;
    struct stat status{};
    if (fstat(file, &status) == 0 && S_ISREG(status.st_mode)) return file;
    close(file);
  }
  return -1;
}

void RemoveReportFile(const char* path) {
  const Place place = PlaceOf(path);
  if (!std::string_view(path).starts_with(kProcessFiles)) {
    unlinkat(place.folder, place.name, 0);
    return;
  }
  const int file = openat(place.folder, place.name, O_WRONLY | O_TRUNC | O_CLOEXEC);
  if (file >= 0) close(file);
}

std::FILE* OpenStandardError() { return Use(STDERR_FILENO); }

bool FinishReport() {
  bool complete = fflush_unlocked(g_stream) == 0 && ferror_unlocked(g_stream) == 0;
  if (g_descriptor != STDERR_FILENO && close(g_descriptor) != 0 && errno != EINTR) complete = false;
  return complete;
}

void FlushStandardStreams() {
  FlushUnlessHeld(stdout);
  FlushUnlessHeld(stderr);
}

}  // namespace tarvo::crashhandler
