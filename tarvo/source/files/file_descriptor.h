#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace tarvo {

/// Owns a file descriptor, or none (-1).
class FileDescriptor {
 public:
  FileDescriptor() noexcept = default;
  explicit FileDescriptor(int descriptor) noexcept : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~FileDescriptor() { Close(); }

  [[nodiscard]] bool IsOpen() const noexcept { return descriptor_ >= 0; }
  [[nodiscard]] int Get() const noexcept { return descriptor_; }
  /// Whether closing found no error (a full disk may show only here). True when none is open.
  bool Close() noexcept { return descriptor_ < 0 || close(std::exchange(descriptor_, -1)) == 0; }

 private:
  int descriptor_ = -1;
};

/// Repeats a system call while a signal interrupts it.
template <typename Call>
auto Uninterrupted(Call&& call) noexcept {
  decltype(call()) result;
  do {
    result = call();
  } while (result < 0 && errno == EINTR);
  return result;
}

}  // namespace tarvo
