#pragma once

#include <cstddef>
#include <optional>

#include "toolkit/document/crash_document.h"

namespace tarvo::toolkit {

/// Where a program crashed.
struct Crash {
  std::size_t thread = 0;  ///< index in the document
  /// Index in the thread's frames of the one that really crashed. The frames in front of it, if
  /// any, are those of the crash handler. Not less than the number of frames: there is no such
  /// frame.
  std::size_t frame = 0;
};

/// Finds the thread that crashed:
///
/// 1. the one whose register fs_base is the exception's "Thread", as in the reports of tarvo's own
///    capture: there that is what pthread_self() gave, which on x86-64 is fs_base (glibc 2.36,
///    sysdeps/x86_64/nptl/tls.h, THREAD_SELF);
/// 2. the one that has it as its number;
/// 3. one with frames of the crash handler.
///
/// Nothing when there is no such thread.
[[nodiscard]] std::optional<Crash> FindCrash(const CrashDocument& document);

}  // namespace tarvo::toolkit
