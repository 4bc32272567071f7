#pragma once

// The Linux crash capture on one page.
//
// A fatal signal enters CrashHandler (crash_handler.cpp) on the crashing thread, which drives the
// stages below in this order. Each is one file with one entry; each gets plain records and passes
// plain records on; nothing flows back.
//
//   stage                     file             entry                runs in
//   0 prepare                 signals          InstallCrashHandler  before a crash
//   1 own the crash           crash_handler    CrashHandler         crashed process
//   2 mend a wild call        bad_call         MendBadCall          crashed process
//   3 list modules            modules          ListModules          crashed process
//   4 list threads            thread_list      ListThreads          crashed process
//   5 record stacks           stack_request    RecordStacks         crashed process
//                             stack_handler    StackHandler         signalled thread
//   6 read registers          register_page    ReadRegisters        crashed process
//                             crash_child      RunCrashChild        crash child
//                             registers        DecodeRegisters      crashed process
//   7 name the frames         frame_texts      NameFrames           crashed process
//   8 report                  (callbacks)      WriteCrashReport     crashed process
//   9 end                     crash_handler    EndProcess           crashed process
//
// The four contexts, named in every function's comment:
//
//   before a crash   an ordinary thread at start or shutdown; may do anything.
//   crashed process  the crashing thread inside its signal handler. Any lock may be held by a
//                    thread that never lets go, the heap may be broken, any pointer may be wild:
//                    no allocation but capture_memory's, no lock but the two hand-overs', no
//                    exception, no standard container, no locale. Other threads go on running.
//   signalled thread another thread, interrupted anywhere, inside the SIGHUP handler: as above, and
//                    no loader function either.
//   crash child      the child made by _Fork: system calls and the shared register page only.
//
// These files are built without exceptions, RTTI and sanitizers.

#include <sys/types.h>

#include <atomic>
#include <cstdint>

#include "crash_context/crash_owner.h"
#include "tarvo/crashhandler.h"
#include "tarvo/framework.h"
#include "tarvo/source_location.h"

namespace tarvo::crashhandler {

inline constexpr SourceFile kCaptureSource{"crashhandler.module/source/linux/linux_crashhandler"};

/// The one crash of this process. Written by the crashing thread, and by the one signalled thread
/// that it has asked for its stack.
extern CrashInfo g_crashInfo;

/// Who captures. The process ends with the capture.
extern CrashOwner g_captureOwner;

/// The process id. Taken at installation, and again at the crash: a program that became a daemon
/// has another one by then.
extern pid_t ownPid;

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
