#pragma once

#include <cstddef>
#include <cstdint>

#include "tarvo/string.h"

/// The crash guard: what a program can add to the capture of crashes, so that no fault gets past it
/// and no capture goes on for ever.
///
///     auto host = tarvo::Host::Start({.crashGuard = {.enabled = true}});
///
/// With the guard a crash report is also left by
///   - a stack overflow, in any thread: each has an alternate stack,
///   - an abort: assert, an uncaught exception, a broken heap or stack that the C library found,
/// the crashing thread's variables tell the signal, where it came from and the registers at the
/// fault, a capture that cannot end is ended, and the program may end by its signal afterwards.
///
/// Who gets a fatal signal, in this order:
///   1. an action that the program installed after Host::Start. To let the rest have its turn it
///      calls the action that it replaced, puts that back, or sets SIG_DFL;
///   2. an action that was there before Host::Start. It recovers by returning or by siglongjmp. It
///      declines by setting SIG_DFL, whether it raises the signal again or not; so does one that
///      was installed with SA_RESETHAND. Where SIG_IGN was there, signals that somebody sends are
///      ignored, but for SIGABRT;
///   3. the capture.
/// While a capture runs, 2 is left out. With the guard on, SIG_DFL means 2 and 3 for these signals,
/// by whoever sets it through `sigaction`, `signal` or its variants. (An action of 1 that was
/// installed with SA_RESETHAND is the last one: the kernel sets the real SIG_DFL.)
///
/// Which threads have an alternate stack: the one that starts the Host, and every one that is
/// started later through pthread_create or thrd_create (std::thread and the like call one of them)
/// by anything in the process. Not those that ran before, that the C library starts for itself
/// (timer_create with SIGEV_THREAD, getaddrinfo_a) or that come from a bare clone. A thread that
/// has an alternate stack keeps it.
///
/// For the threads and for SIG_DFL the host library stands in front of the C library: the program
/// links it itself, or preloads it; a diagnostic line says so when it does not.
namespace tarvo {

/// The defaults of the entries that are named at each field. Nothing here costs a running program
/// anything; the start of a thread takes a few microseconds more.
struct CrashGuardOptions {
  /// Whether there is a guard. Entry g_crashGuard.
  bool enabled = false;

  /// Seconds from the crash after which a capture that has not ended is ended; a line on standard
  /// error says so. Threads that cannot be interrupted are left out from then on, and where there
  /// are such the capture gets three more seconds to finish the report. Else, and after those, what
  /// was written is flushed, and the process ends with status 1; if it has not ended
  /// kCrashGuardGrace after the deadline, by SIGKILL. 0: never. Entry g_crashGuardDeadline.
  std::int64_t deadline = 30;

  /// Whether the process ends by the signal of the crash, after the report, instead of with status
  /// 1, so that core dumps and supervisors see it. Entry g_crashGuardReraise.
  bool reraise = false;

  /// Whether SIGHUP ends a process that has no handler for it and does not ignore it, as it would
  /// without the capture. The capture has a use of its own for the signal, and else makes it
  /// harmless. Entry g_crashGuardHangup.
  bool hangup = false;

  /// The path of the report's file instead of g_crashReportUrl, made for each process: %p stands
  /// for its id, also that of a forked child, %e for the name that the program was called by, %t
  /// for the time of the start, as in 20261121T130940Z, %% for %. A relative path starts at the
  /// working directory of the start. Where such marks name folders, those that are missing are made
  /// at the crash; else the folder has to be there. A line on standard error names the report.
  /// Takes at the crash one file descriptor, at most 1023. Empty: the report goes where
  /// g_crashReportUrl says. Entry g_crashGuardReport.
  String report{};
};

inline constexpr std::int64_t kCrashGuardMaximumDeadline = 86400;
inline constexpr std::int64_t kCrashGuardGrace = 5;  ///< seconds

/// Bytes of a thread's alternate stack, without the guard page below and above it. A capture takes
/// 9 KiB of it where a signal frame has 3.3 KiB (AVX-512), and up to three frames more than that
/// where the thread's registers are larger.
inline constexpr std::size_t kAlternateStackSize = std::size_t{64} << 10;

}  // namespace tarvo
