#pragma once

#include <chrono>
#include <string>
#include <vector>

/// Whether this build has a sanitizer's runtime in it.
#ifdef TARVO_SANITIZED
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif
/// Why tests that load a library by its name alone are skipped in such a build.
inline constexpr const char* kNoDlopen =
    "the sanitizer's dlopen searches the directories of its own runtime, not of the program";

/// How a program that a test ran has ended.
struct ProgramResult {
  int exitStatus = -1;    ///< -1 when it did not exit by itself
  int signal = 0;         ///< the signal that ended it
  bool timedOut = false;  ///< it was killed because its time was up
  std::string output;     ///< standard output
  std::string errors;     ///< standard error

  /// "exit status 1", "signal 11", "killed after its time was up", with the standard error behind
  /// it.
  [[nodiscard]] std::string Describe() const;
};

struct ProgramOptions {
  /// A hard limit; the program's process group is killed when it is over.
  std::chrono::milliseconds timeout{20000};
  std::vector<std::string> environment{};  ///< "NAME=VALUE", added to this process's
  std::string directory{};                 ///< working directory; empty: this process's
  bool closeStandardError = false;         ///< standard error is a pipe that nobody reads any more
};

/// Runs `arguments[0]` with the rest as its arguments and waits for its end and for the end of its
/// output.
ProgramResult RunProgram(const std::vector<std::string>& arguments,
                         const ProgramOptions& options = {});

/// The directory of the build's programs ("…/bin"), from the test program's own place.
std::string BuildDirectory();
