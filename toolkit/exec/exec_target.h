#pragma once

#include <string>

#include "tarvo/result.h"

namespace tarvo::toolkit {

/// Exit statuses of a command that runs another, as env(1) and its like have them.
inline constexpr int kNotStarted = 125;  ///< the command itself failed
inline constexpr int kCannotRun = 126;   ///< the program was found, and does not run
inline constexpr int kNoSuchProgram = 127;

/// A program that cannot be run with a preloaded library.
struct TargetProblem {
  int status = kNotStarted;
  std::string text;
};

/// The file that `name` stands for: itself with a "/" in it, else the first executable file of that
/// name in PATH; empty when there is none.
std::string FindProgram(const std::string& name);

/// Looks at the program file, and at the interpreter when it is a script: what keeps the loader
/// from preloading a library into it. An empty text when nothing does. Of a file that is neither a
/// script nor an ELF file nothing is said; the kernel will.
TargetProblem CheckTarget(const std::string& file);

}  // namespace tarvo::toolkit
