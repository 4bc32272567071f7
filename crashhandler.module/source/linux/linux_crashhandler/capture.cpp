#include "linux/linux_crashhandler/capture.h"

#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tarvo::crashhandler {

CrashInfo g_crashInfo;
std::atomic<std::uint64_t> g_captureOwner{0};
pid_t ownPid = 0;
std::atomic<CrashCallback> crashReportCallback{nullptr};
std::atomic<CrashCallback> afterReportCallback{nullptr};
const CrashServices* g_crashServices = nullptr;

pid_t OwnThreadId() { return static_cast<pid_t>(syscall(SYS_gettid)); }

bool IsCapturing() { return g_captureOwner.load() >> 32 == static_cast<std::uint32_t>(getpid()); }

void Park() {
  // The raw call: pause() is a cancellation point and would unwind a cancelled thread.
  for (;;) syscall(SYS_pause);
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
  char line[512];
  std::size_t size = 0;
  const auto append = [&](const char* from, std::size_t length) {
    for (std::size_t i = 0; i < length && size < sizeof(line) - 1; ++i) line[size++] = from[i];
  };
  const char* placeholder = argument == nullptr ? nullptr : strchr(text, '@');
  if (placeholder == nullptr) {
    append(text, strlen(text));
  } else {
    append(text, static_cast<std::size_t>(placeholder - text));
    append(argument, strlen(argument));
    append(placeholder + 1, strlen(placeholder + 1));
  }
  line[size] = '\0';
  g_crashServices->diagnostic(where.path.data(), where.line, line);
}

const char* ErrorText(int error) {
  const char* text = strerrordesc_np(error);
  return text == nullptr ? "Unknown error" : text;
}

}  // namespace tarvo::crashhandler
