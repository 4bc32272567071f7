#include "crash_path/crash_services.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "crash_context/text_buffer.h"
#include "crash_path/process_end.h"
#include "crash_path/report_callbacks.h"
#include "tarvo/host/attachments.h"

namespace tarvo {
namespace {

/// The line end always fits.
using Line = TextBuffer<kMaximumCrashDiagnostic>;

/// Control characters as their bytes, without the C library: C0, DEL, and C1 in UTF-8. They come
/// from names of files.
void AppendSafe(Line& line, const char* text) {
  constexpr const char* kDigits = "0123456789abcdef";
  bool followsC2 = false;
  for (; *text != '\0'; ++text) {
    const auto byte = static_cast<unsigned char>(*text);
    const bool isC1 = followsC2 && byte >= 0x80 && byte < 0xa0;
    followsC2 = byte == 0xc2;
    if (byte >= 0x20 && byte != 0x7f && !isC1) {
      line.Append(*text);
      continue;
    }
    line.Append("\\x");
    line.Append(kDigits[byte >> 4]);
    line.Append(kDigits[byte & 15]);
  }
}

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
  AppendSafe(whole, path == nullptr ? "" : path);
  whole.Append(':');
  whole.AppendDecimal(line);
  whole.Append(": ");
  AppendSafe(whole, text == nullptr ? "" : text);
  Write(whole);
  errno = saved;
}

constinit const CrashServices kCrashServices{.diagnostic = WriteCrashDiagnostic,
                                             .threadVariables = LookUpThreadVariables,
                                             .releaseThreadVariables = ReleaseThreadVariables,
                                             .captureBegins = BeginCapture,
                                             .reportWritten = ReportWritten,
                                             .runNextCallback = RunNextCallback,
                                             .captureEnds = CaptureEnds,
                                             .attachment = LookUpAttachment,
                                             .attachmentPlaces = kMaximumAttachments,
                                             .offerWriter = OfferWriter};

}  // namespace tarvo
