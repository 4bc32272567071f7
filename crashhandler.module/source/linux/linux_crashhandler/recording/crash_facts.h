#pragma once

#include <sys/types.h>

#include "crash_context/signal_frame.h"

namespace tarvo::crashhandler {

/// Notes the program's file. Before a crash.
void PrepareCrashFacts();

/// Adds what later stages need to know to the variables of the crash record's threads.
///
/// Of the crashing thread `self`:
///
///     CrashTime = 2026-11-21T13:09:40Z          in UTC
///     ProgramFile = /usr/bin/python3.11         whose entry among the modules has no path
///     Fault_rip = 0x000055d0c2a411f9            the program counter at the fault, unless the
///                                               crash guard has told it
///     BuildId_0x7f2a5c3f1000 = 4a89…            a line for each module that has a GNU build id, by
///                                               its base address as the report prints it
///
/// Of any thread:
///
///     FramesMissing = it did not stop: it waits in the kernel
///     RegistersMissing = Operation not permitted
///     GuessedFrames = 3 4 9                     places of frames, from 0 on, that were found
///                                               without call-frame information
///
/// Needs the modules and the threads to be recorded. Crashed process.
void AddCrashFacts(pid_t self, const SignalFrame& frame);

}  // namespace tarvo::crashhandler
