#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "files/file_descriptor.h"

namespace tarvo::toolkit {

/// The service manager that has started this process, told by the datagrams of sd_notify(3); where
/// none asks for them (NOTIFY_SOCKET) nothing is done, and what cannot be sent is lost. Used by one
/// thread.
class ServiceManager {
 public:
  ServiceManager();

  /// Assignments, one a line: "READY=1".
  void Tell(std::string_view assignments);

  /// Sends a sign of life where one is wanted by now.
  void Live(std::chrono::steady_clock::time_point now);
  /// How long from one sign to the next; nothing where none is wanted (WATCHDOG_USEC).
  [[nodiscard]] std::optional<std::chrono::milliseconds> SignEvery() const { return signEvery_; }

 private:
  FileDescriptor socket_{};
  std::string address_{};
  std::optional<std::chrono::milliseconds> signEvery_{};
  std::chrono::steady_clock::time_point nextSign_{};
};

}  // namespace tarvo::toolkit
