#include "legacycrashlog/report_stream.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio_ext.h>
#include <unistd.h>

namespace tarvo::crashhandler {
namespace {

std::FILE* g_stream = nullptr;
char g_buffer[16 * 1024];
int g_descriptor = -1;

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

std::FILE* OpenReportFile(const char* path) {
  const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  return file < 0 ? nullptr : Use(file);
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
