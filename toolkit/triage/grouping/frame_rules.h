#pragma once

#include "toolkit/triage/model/crash_stack.h"

/// Which functions a crash is not to be named after. The tables are in frame_rules.cpp, each rule
/// with its reason. All of these need the entry's key.
namespace tarvo::toolkit {

/// A function that ends the program, or throws, because others ask it to: it and what it has called
/// tell nothing.
[[nodiscard]] bool IsRaising(const StackEntry& entry);

/// A function that passes through what its callers gave it: the standard library's, the C
/// library's, the system's.
[[nodiscard]] bool IsGlue(const StackEntry& entry);

/// A function of this crash handler, at work.
[[nodiscard]] bool IsOfCrashHandler(const StackEntry& entry);

/// `main` and its like: what has called it is the same in all programs.
[[nodiscard]] bool IsProgramStart(const StackEntry& entry);

/// What starts programs and threads.
[[nodiscard]] bool IsBelowProgram(const StackEntry& entry);

}  // namespace tarvo::toolkit
