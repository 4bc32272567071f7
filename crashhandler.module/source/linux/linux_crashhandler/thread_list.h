#pragma once

#include <sys/types.h>

#include <span>

#include "tarvo/crashhandler.h"

namespace tarvo::crashhandler {

/// The ids of this process's threads, in the order in which the kernel lists /proc/self/task, or
/// null when that directory cannot be read. Crashed process.
const CaptureArray<pid_t>* ListThreads();

/// Puts the thread's name into `name`, 16 zeroed bytes: the first word of its `comm` file,
/// "unknown" when there is none in it, nothing when the file cannot be opened. Crashed process.
void ReadThreadName(pid_t tid, std::span<char, 16> name);

}  // namespace tarvo::crashhandler
