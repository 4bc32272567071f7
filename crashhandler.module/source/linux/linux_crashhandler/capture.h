#pragma once

// The Linux crash capture on one page.
//
// A fatal signal enters CrashHandler (crash_handler.cpp) on the crashing thread, which drives the
// stages below in this order. Each is one file with one entry; what they know of the threads is in
// one table, facts/thread_table.h. A stage that faults or has no time left is given up, and the
// report is made of what there is.
//
//   stage                     file                      entry                runs in
//   0 prepare                 signals                   InstallCrashHandler  before a crash
//   1 own the crash           crash_handler             CrashHandler         crashed process
//   2 facts of the signal     signal_frame *            FindSignalFrame      crashed process
//   3 modules, code           facts/modules             ListModules          crashed process
//                             facts/code_ranges         ListCodeRanges       crashed process
//   4 list the threads        facts/thread_table        ListThreads          crashed process
//   5 walk the crashed one    walking/stack_capture     WalkCrashedThread    crashed process
//   6 stop all others         stopping/thread_stop      StopThreads          crashed process
//                             stopping/tracer           RunTracer            tracer
//     meanwhile name them      facts/thread_names        NameThreads          crashed process
//   7 walk them               walking/stack_capture     WalkStoppedThreads   crashed process
//                             walking/stack_walk        WalkStack            crashed process
//                             walking/unwind_from       tarvoUnwindFrom      any context
//   8 ask who did not stop    asking/stack_request      RequestStacks        crashed process
//                             asking/stack_handler      StackHandler         signalled thread
//                             asking/register_page      ReadRegisters        crashed process
//                             asking/crash_child        RunCrashChild        crash child
//   9 make the records        recording/thread_records  RecordThreads        crashed process
//                             facts/registers           DecodeRegisters      crashed process
//                             recording/crash_facts     AddCrashFacts        crashed process
//                             recording/frame_texts     NameFrames           crashed process
//  10 report                  (callbacks)               WriteCrashReport     crashed process
//  11 end                     capture                   EndProcess           crashed process
//
//   * in tarvo/crash_context, as the crash guard needs it too
//
// The contexts and their rules stand in crash_context/rules.h. Memory comes from
// base/capture_memory, steps that may fault run under base/fault_guard, and nothing waits without a
// limit.

#include <sys/types.h>

#include <atomic>
#include <cstdint>

#include "crash_context/crash_owner.h"
#include "tarvo/crash_callbacks.h"
#include "tarvo/crashhandler.h"
#include "tarvo/framework.h"
#include "tarvo/source_location.h"

namespace tarvo::crashhandler {

inline constexpr SourceFile kCaptureSource{"crashhandler.module/source/linux/linux_crashhandler"};

/// The one crash of this process. Written by the crashing thread.
extern CrashInfo g_crashInfo;

/// Who captures. The process ends with the capture.
extern CrashOwner g_captureOwner;

/// The process id. Taken at installation, and again at the crash: a program that became a daemon
/// has another one by then.
extern pid_t ownPid;

/// Where the report is, for the callbacks behind it. Written by the writer in the crash.
extern WrittenReport g_writtenReport;

/// What to call at a crash and after it; null when unset. Set before a crash.
extern std::atomic<CrashCallback> crashReportCallback;
extern std::atomic<CrashCallback> afterReportCallback;

/// The host's functions for damaged processes; set at installation.
extern const CrashServices* g_crashServices;

/// The calling thread's kernel id. Any context.
pid_t OwnThreadId();

/// Waits in place for the end of the process; answers SIGHUP meanwhile. Any context.
[[noreturn]] void Park();

/// Ends the process with status 1, now. Any context.
[[noreturn]] void EndProcess();

/// Writes a diagnostic line of the capture: `text`, its "@" replaced by `argument`. Any context.
void Diagnose(SourceLocation where, const char* text, const char* argument = nullptr);

/// The text of an errno value, untranslated: strerror would take the message catalogue's lock
/// (glibc 2.36 intl/dcigettext.c). Any context.
const char* ErrorText(int error);

}  // namespace tarvo::crashhandler
