#pragma once

#include <cstddef>
#include <string_view>

#include "tarvo/result.h"

/// Thread variables: names and values of a thread that stand in its part of a crash report, to tell
/// what it was working on. They work with and without a running Host.
///
///     tarvo::SetThreadVariable("Document", path);
///
/// A thread's variables end with the thread. A child process made by fork keeps those of the thread
/// that called it.
namespace tarvo {

/// Longer values are cut at a character's border.
inline constexpr std::size_t kMaximumThreadVariableValue = 4096;
/// Longer names are refused.
inline constexpr std::size_t kMaximumThreadVariableName = 256;

/// Sets a variable of the calling thread; a name that is there keeps its place in the order.
///
/// A name starts with an ASCII letter or "_" and holds no "=", blank or control character, else an
/// illegal-argument error: the report's lines are `NAME = VALUE`. Line ends and NUL bytes of the
/// value become blanks. An out-of-memory error leaves the variables as they were.
///
/// Costs one allocation and a copy of the thread's variables. Not for signal handlers; a handler
/// that interrupts it sees the variables as they were before or as they are after.
[[gnu::visibility("default")]] Result<void> SetThreadVariable(std::string_view name,
                                                              std::string_view value);

/// Removes a variable of the calling thread; a name that is not there is ignored. Where memory has
/// run out the variable stays.
[[gnu::visibility("default")]] void RemoveThreadVariable(std::string_view name);

}  // namespace tarvo
