#include "crash_path/crash_services.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "crash_context/text_buffer.h"
#include "crash_path/process_end.h"

namespace tarvo {
namespace {

/// The line end always fits.
using Line = TextBuffer<kMaximumCrashDiagnostic>;

void Write(Line& line) {
  char bytes[kMaximumCrashDiagnostic];
  std::memcpy(bytes, line.Text(), line.Size());
  bytes[line.Size()] = '\n';
  while (write(STDERR_FILENO, bytes, line.Size() + 1) < 0 && errno == EINTR) {
  }
}

}  // namespace

void WriteCrashDiagnostic(const char* path, std::uint32_t line, const char* text) {
  const int saved = errno;
  Line whole;
  whole.Append(path == nullptr ? "" : path);
  whole.Append(':');
  whole.AppendDecimal(line);
  whole.Append(": ");
  whole.Append(text == nullptr ? "" : text);
  Write(whole);
  errno = saved;
}

constinit const CrashServices kCrashServices{.diagnostic = WriteCrashDiagnostic,
                                             .threadVariables = LookUpThreadVariables,
                                             .releaseThreadVariables = ReleaseThreadVariables,
                                             .captureBegins = BeginCapture};

}  // namespace tarvo
