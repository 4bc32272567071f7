#pragma once

#include "files/file_descriptor.h"
#include "tarvo/result.h"

namespace tarvo::toolkit {

/// SIGINT and SIGTERM, which ask a program to end, as something to be polled. They stay blocked,
/// also in processes that are forked meanwhile, where `IsEndAsked` tells of them. Made before there
/// are other threads.
class SignalDescriptor {
 public:
  /// An illegal-state error when the kernel refuses.
  static Result<SignalDescriptor> Make();

  [[nodiscard]] int Descriptor() const noexcept { return signals_.Get(); }
  /// Takes one signal; false where none has come.
  [[nodiscard]] bool Take();

 private:
  explicit SignalDescriptor(FileDescriptor signals) : signals_(std::move(signals)) {}
  FileDescriptor signals_;
};

/// Whether one of the two has come to this process, where they are blocked. Any thread.
[[nodiscard]] bool IsEndAsked() noexcept;

}  // namespace tarvo::toolkit
