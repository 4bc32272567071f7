#include "crash_path/crash_services.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tarvo {
namespace {

/// One line on the stack; what does not fit is dropped, the line end always fits.
class LineBuffer {
 public:
  void Append(const char* text) noexcept {
    if (text == nullptr) return;
    const std::size_t room = kMaximumCrashDiagnostic - 1 - size_;
    const std::size_t length = strnlen(text, room);
    std::memcpy(bytes_ + size_, text, length);
    size_ += length;
  }
  void AppendDecimal(std::uint32_t number) noexcept {
    char digits[11];
    char* first = digits + sizeof digits - 1;
    *first = '\0';
    do {
      *--first = static_cast<char>('0' + number % 10);
    } while ((number /= 10) != 0);
    Append(first);
  }
  void Write(int descriptor) noexcept {
    bytes_[size_++] = '\n';
    while (write(descriptor, bytes_, size_) < 0 && errno == EINTR) {
    }
  }

 private:
  char bytes_[kMaximumCrashDiagnostic];
  std::size_t size_ = 0;
};

}  // namespace

void WriteCrashDiagnostic(const char* path, std::uint32_t line, const char* text) {
  const int saved = errno;
  LineBuffer buffer;
  buffer.Append(path);
  buffer.Append(":");
  buffer.AppendDecimal(line);
  buffer.Append(": ");
  buffer.Append(text);
  buffer.Write(STDERR_FILENO);
  errno = saved;
}

constinit const CrashServices kCrashServices{.diagnostic = WriteCrashDiagnostic,
                                             .threadVariables = LookUpThreadVariables,
                                             .releaseThreadVariables = ReleaseThreadVariables};

}  // namespace tarvo
