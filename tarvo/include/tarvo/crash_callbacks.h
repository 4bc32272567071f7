#pragma once

#include <cstddef>
#include <string_view>

#include "tarvo/crashhandler.h"
#include "tarvo/object.h"
#include "tarvo/result.h"

/// What a program does itself at a crash, behind the report: callbacks in a chain, each with a
/// pointer of the program's own. They are given with HostOptions::reportCallbacks, or at any time
///
///     if (auto chain = tarvo::Bind<tarvo::CrashCallbacks>((*host)->Services()))
///       (void)(*chain)->Append(OnReport, &g_session);
///
/// A callback runs in the crashed process, on the crashing thread, inside the signal handler: any
/// lock may be held for ever, the heap may be broken, all other threads stand still. It may call
///   - what POSIX lists as async-signal-safe: open, read, write, close, fsync, rename, unlink,
///     _Fork, execve, sigaction and the like (signal-safety(7)),
///   - memcpy, strlen and their like, lock-free atomics,
/// and read what was prepared before the crash and what it is given. It may not
///   - allocate or free, throw, or make anything that does (std::string, std::vector, iostreams),
///   - take a lock, print with the C library's streams, load a library, start or await a thread,
///   - call this library, but for the functions that say "any context".
/// What it may wait for has a limit with the crash guard's deadline alone. One that faults is given
/// up, and the next has its turn. This one leaves a line in a file that was opened at the start:
///
///     struct Session {
///       int log;
///       char document[256];
///     };
///
///     void OnReport(const tarvo::WrittenReport* report, void* data) {
///       const auto* session = static_cast<const Session*>(data);
///       for (const char* text :
///            {session->document, " was open; the report is ", report->path, "\n"})
///         if (write(session->log, text, std::strlen(text)) < 0) return;
///       fsync(session->log);
///     }
///
/// examples/callbacks is a whole program.
namespace tarvo {

/// What the capture of a crash has left. Owned by the capture.
struct WrittenReport {
  const CrashInfo* crash = nullptr;
  /// The report's file, absolute; empty where the report went to standard error, or was not
  /// written.
  const char* path = "";
  /// The same file, open for reading and, where it can be, for writing, at its start; it is closed
  /// by the end of the process. -1 where there is no file.
  int descriptor = -1;
};

/// Called once at a crash, by the rules above. `data` is the program's own.
using ReportCallback = void (*)(const WrittenReport* report, void* data);

struct ChainedCallback {
  ReportCallback function = nullptr;
  void* data = nullptr;  ///< not touched; what it points to lives until the process ends
};

/// More are refused.
inline constexpr std::size_t kMaximumReportCallbacks = 32;

/// The chain of callbacks behind the report, and the writer of reports. At a crash run, in this
/// order: the function of CrashHandler::SetCallback, which is the writer unless it was replaced;
/// the crash guard's line that names the report; the function of SetSecondaryCallback; the chain,
/// first come, first called; the crash guard's end by the signal. Any thread.
class CrashCallbacks : public Object {
 public:
  static constexpr std::string_view kInterfaceId = "net.tarvo.interface.crashcallbacks";

  /// Adds a callback behind all others. An illegal-state error when no crash capture is installed;
  /// an illegal-argument error without a function, or when there are kMaximumReportCallbacks.
  virtual Result<void> Append(const ChainedCallback& callback) = 0;

  /// Takes out every callback that has been added with this function and data.
  virtual void Remove(const ChainedCallback& callback) = 0;

  /// The function that writes the report, so that one that was given to SetCallback can call it,
  /// before or behind its own work; null when no crash capture is installed.
  [[nodiscard]] virtual CrashCallback Writer() = 0;

 protected:
  ~CrashCallbacks() = default;
};

}  // namespace tarvo
