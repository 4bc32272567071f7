#include "linux/linux_crashhandler/capture.h"

#include <signal.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "crash_context/raw_system_call.h"
#include "crash_context/text_buffer.h"

namespace tarvo::crashhandler {

CrashInfo g_crashInfo;
WrittenReport g_writtenReport;
CrashOwner g_captureOwner;
pid_t ownPid = 0;
std::atomic<CrashCallback> crashReportCallback{nullptr};
std::atomic<CrashCallback> afterReportCallback{nullptr};
const CrashServices* g_crashServices = nullptr;

pid_t OwnThreadId() { return static_cast<pid_t>(syscall(SYS_gettid)); }

void Park() {
  // No handler of the program runs any more in this thread; a request for its stack is answered.
  // The raw calls: pause() is a cancellation point and would unwind a cancelled thread.
  const std::uint64_t mask = ~(std::uint64_t{1} << (SIGHUP - 1));
  RawSystemCall(SYS_rt_sigprocmask, SIG_SETMASK, &mask, nullptr, sizeof(mask));
  for (;;) RawSystemCall(SYS_pause);
}

void EndProcess() {
  // Not exit(1): glibc 2.36 (stdlib/exit.c, __run_exit_handlers) runs the thread_local destructors
  // of the crashed thread before any exit handler, and atexit may allocate the slot for one
  // (stdlib/cxa_atexit.c, __new_exitfn). Either can wait for ever for a lock that was held at the
  // fault. By now the report is complete and closed, and nothing else is owed.
  for (;;) _exit(1);
}

void Diagnose(SourceLocation where, const char* text, const char* argument) {
  if (g_crashServices == nullptr) return;
  TextBuffer<512> line;
  for (; *text != '\0'; ++text) {
    if (*text == '@' && argument != nullptr) {
      line.Append(argument);
      argument = nullptr;
    } else {
      line.Append(*text);
    }
  }
  g_crashServices->diagnostic(where.path.data(), where.line, line.Text());
}

const char* ErrorText(int error) {
  const char* text = strerrordesc_np(error);
  return text == nullptr ? "Unknown error" : text;
}

}  // namespace tarvo::crashhandler
