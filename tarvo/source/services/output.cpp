#include "services/output.h"

#include <poll.h>
#include <unistd.h>

#include <mutex>
#include <string>

#include "files/file_descriptor.h"
#include "tarvo/format.h"
#include "text/safe_text.h"

namespace tarvo {
namespace {

/// A longer line is cut: names from a report may have any length.
constexpr std::size_t kMaximumLineBytes = 64 * 1024;

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

/// What anybody wrote becomes one line that steers no terminal, whichever module passes it on.
void WriteLine(int descriptor, std::string_view text) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  std::string line = SafeText(text.substr(0, kMaximumLineBytes));
  if (text.size() > kMaximumLineBytes) line += "…";
  line += '\n';
  const std::scoped_lock lock(g_streams);
  WriteAll(descriptor, line);
}

}  // namespace

void Output::Diagnostic(SourceLocation where, std::string_view text) {
  WriteLine(STDERR_FILENO, Format("@:@: @", where.path, where.line, text));
}

void Output::Critical(SourceLocation where, std::string_view text) {
  WriteLine(STDERR_FILENO, Format("@:@: critical: @", where.path, where.line, text));
}

void Output::Console(SourceLocation, std::string_view text) { WriteLine(STDOUT_FILENO, text); }

}  // namespace tarvo
