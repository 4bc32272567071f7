#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "tarvo/result.h"

namespace tarvo::report {

/// A directory of one's own below the system's for temporary files, held locked (flock) for as long
/// as it is used and removed at the end. Those of killed processes are removed by the next process
/// that makes one: their lock is free.
class Scratch {
 public:
  /// A file error with the system's reason.
  static Result<Scratch> Make();

  Scratch(Scratch&& other) noexcept;
  Scratch& operator=(Scratch&&) = delete;
  ~Scratch();

  [[nodiscard]] const std::string& Path() const noexcept { return path_; }

 private:
  Scratch(std::string path, int lock) noexcept;

  std::string path_;
  int lock_;
};

/// One that is made when it is asked for: most runs need none. Any thread.
class LateScratch {
 public:
  /// Its path. An error as Scratch::Make's; the next call tries again.
  Result<std::string> Path();

 private:
  std::mutex mutex_;
  std::optional<Scratch> scratch_;
};

}  // namespace tarvo::report
