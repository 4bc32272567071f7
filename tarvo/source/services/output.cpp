#include "services/output.h"

#include <poll.h>
#include <unistd.h>

#include <mutex>
#include <string>

#include "files/file_descriptor.h"
#include "tarvo/format.h"

namespace tarvo {
namespace {

/// The kernel may take a long line in several steps (a pipe whose reader is slow); the lock keeps
/// the lines of other threads out of the gaps. One for both streams: they are often one file.
constinit std::mutex g_streams;

/// Writes everything; gives up silently where the stream is broken, since there is nowhere to say
/// so.
void WriteAll(int descriptor, std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const ssize_t written =
        Uninterrupted([&] { return write(descriptor, bytes.data(), bytes.size()); });
    if (written > 0) {
      bytes.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {
      pollfd ready{.fd = descriptor, .events = POLLOUT, .revents = 0};
      poll(&ready, 1, -1);
    } else {
      return;
    }
  }
}

void WriteLine(int descriptor, std::string line) {
  if (!line.ends_with('\n')) line += '\n';
  const std::scoped_lock lock(g_streams);
  WriteAll(descriptor, line);
}

}  // namespace

void Output::Diagnostic(SourceLocation where, std::string_view text) {
  WriteLine(STDERR_FILENO, Format("@:@: @", where.path, where.line, text).ToStdString());
}

void Output::Critical(SourceLocation where, std::string_view text) {
  WriteLine(STDERR_FILENO, Format("@:@: critical: @", where.path, where.line, text).ToStdString());
}

void Output::Console(SourceLocation, std::string_view text) {
  WriteLine(STDOUT_FILENO, std::string(text));
}

}  // namespace tarvo
