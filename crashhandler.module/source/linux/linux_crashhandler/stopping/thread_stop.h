#pragma once

#include <sys/types.h>

namespace tarvo::crashhandler {

/// Maps the tracer's stack. Before a crash.
void PrepareTracer();

/// Stops all other threads and reads their registers and those of this one, into g_threadTable, and
/// does `meanwhile` what the threads need not stand still for. The threads stay stopped until the
/// process ends. Returns within a second; what could not be stopped
/// says why in its entry. Crashed process.
void StopThreads(pid_t self, void (*meanwhile)());

/// Lets the stopped threads go on for a moment and stops them again: one of them held what a walk
/// has waited for. False when there is no tracer any more. Crashed process.
bool YieldToThreads();

/// Whether the stopped threads are still held. Crashed process.
bool IsTracerAlive();

}  // namespace tarvo::crashhandler
