#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "files/file_descriptor.h"
#include "tarvo/result.h"

namespace tarvo::toolkit {

/// A process that deals with a batch: what its reports do to it, whatever they hold, ends it and
/// not the watch, and all that it takes is given back. It dies with its parent. Used by one thread.
class BatchProcess {
 public:
  /// Does the work in the child; `tell` sends lines to the parent. Gives the exit status.
  using Work = std::function<int(const std::function<void(std::string_view line)>& tell)>;

  /// Forks; the parent must have one thread only. An illegal-state error when that fails.
  static Result<BatchProcess> Start(const Work& work);
  BatchProcess(BatchProcess&& other) noexcept;
  BatchProcess& operator=(BatchProcess&&) = delete;
  /// Kills it where it has not ended.
  ~BatchProcess();

  /// Becomes readable when it has told something, or has ended.
  [[nodiscard]] int Descriptor() const noexcept { return lines_.Get(); }
  /// The lines that have come, without their ends; nothing when no more will come.
  [[nodiscard]] std::optional<std::vector<std::string>> TakeLines();

  /// Asks it to begin no further report.
  void AskToEnd() const;
  void Kill() const;
  /// Waits for its end, which is near once TakeLines gives nothing; its status as of waitpid(2).
  int Wait();

 private:
  BatchProcess(pid_t process, FileDescriptor lines) : process_(process), lines_(std::move(lines)) {}

  pid_t process_;
  FileDescriptor lines_;
  std::string unfinished_{};  ///< the start of a line
};

}  // namespace tarvo::toolkit
