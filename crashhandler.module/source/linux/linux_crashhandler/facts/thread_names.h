#pragma once

namespace tarvo::crashhandler {

/// Why a worker of the kernel's has neither frames nor registers.
inline constexpr const char* kKernelWorker = "it is a worker of the kernel's";

/// Reads the names of the threads in g_threadTable, and knows the kernel's own workers among them
/// (io_uring, vhost): they run in the process and have no stack in it. Those that have a name are
/// left out. Crashed process.
void NameThreads();

}  // namespace tarvo::crashhandler
