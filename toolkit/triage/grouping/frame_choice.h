#pragma once

#include <cstddef>
#include <vector>

#include "toolkit/triage/model/crash_stack.h"

namespace tarvo::toolkit {

/// Which entries of a stack, whose keys are set, a crash is named after, in their order:
/// 1. what raises is cut with all above it (frame_rules.h), ...
/// 2. ... the walk ends at `main`, which belongs to it, or above what starts threads, ...
/// 3. ... the crash handler's own functions, glue, and code of no module are left out, ...
/// 4. ... and a function that is there already, as in recursions.
/// Where that leaves nothing glue is taken too, and where still nothing is left, all of it: there
/// is always an entry if the stack has one.
[[nodiscard]] std::vector<std::size_t> ChooseFrames(const CrashStack& stack);

/// The functions of a recursion, those that are on the stack thrice or more, sorted by key: which
/// of them touches the end of the stack is chance. Empty when there are none.
[[nodiscard]] std::vector<std::size_t> RecursiveFrames(const CrashStack& stack);

}  // namespace tarvo::toolkit
