#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include "toolkit/report/handler_frames.h"

namespace tarvo::report {

/// Where a program crashed.
struct CrashSite {
  std::size_t thread = 0;  ///< index in the report
  /// Index in the thread's frames of the one that the crash interrupted. The frames in front of it,
  /// if any, are those of the crash handler. May be that behind the last frame.
  std::size_t interrupted = 0;
  /// Index of the frame to look at: the interrupted one or, of an abort, the one that called the
  /// runtime libraries which ended the program. May be that behind the last frame.
  std::size_t frame = 0;
};

/// What a thread says of itself. Texts as the report has them, empty where it has none.
struct ThreadFacts {
  std::optional<std::uint64_t> number;
  std::string_view threadRegister;  ///< the value of crash_report::kThreadRegister
  std::string_view fault;           ///< the variable with the program counter at the fault
  std::string_view signal;          ///< the variable with the signal's name
};

/// What a report says, in whatever form it is held.
struct CrashFacts {
  std::string_view exceptionThread;
  std::string_view exceptionNumber;
  std::string_view exceptionText;
  std::size_t threads = 0;
  std::function<ThreadFacts(std::size_t thread)> thread;
  std::function<std::vector<FrameName>(std::size_t thread)> frames;
  /// Whether one of the thread's frames is in the module: asked of all threads, of most in vain.
  std::function<bool(std::size_t thread, std::string_view module)> isIn;
};

/// Finds the thread that crashed:
///
/// 1. the one whose register fs_base is the exception's "Thread", as in the reports of tarvo's own
///    capture: there that is what pthread_self() gave, which on x86-64 is fs_base (glibc 2.36,
///    sysdeps/x86_64/nptl/tls.h, THREAD_SELF);
/// 2. the one that has it as its number;
/// 3. one with frames of the crash handler;
/// 4. the first, where the report tells of an exception, as those of Windows do.
///
/// Nothing when there is no such thread.
[[nodiscard]] std::optional<CrashSite> FindCrashSite(const CrashFacts& facts);

/// The place in the thread at the index `thread`, which is known to have crashed.
[[nodiscard]] CrashSite FindCrashSite(const CrashFacts& facts, std::size_t thread);

}  // namespace tarvo::report
