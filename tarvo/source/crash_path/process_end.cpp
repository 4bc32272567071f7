#include "crash_path/process_end.h"

#include <dlfcn.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

#include "crash_context/crash_owner.h"
#include "crash_context/raw_system_call.h"

namespace tarvo {
namespace {

constinit CrashOwner g_capture;

pid_t OwnThread() { return static_cast<pid_t>(RawSystemCall(SYS_gettid)); }

}  // namespace

void BeginCapture() { g_capture.Take(OwnThread()); }
bool HasCaptureBegun() { return g_capture.IsTaken(); }

}  // namespace tarvo

// A sanitizer's runtime stands in front of these itself, and reports at the end.
#ifndef TARVO_SANITIZED

namespace tarvo {
namespace {

/// A request for the thread's stack still reaches it.
void AwaitCapture() {
  while (g_capture.IsTaken() && !g_capture.IsHeldBy(OwnThread())) RawSystemCall(SYS_pause);
}

}  // namespace
}  // namespace tarvo

namespace {

using Exit = void (*)(int);
std::atomic<Exit> g_exit{nullptr};
std::atomic<Exit> g_quickExit{nullptr};

/// When the library is loaded: looking up a function is nothing for a signal handler.
[[gnu::constructor]] void FindNext() {
  g_exit.store(reinterpret_cast<Exit>(dlsym(RTLD_NEXT, "exit")));
  g_quickExit.store(reinterpret_cast<Exit>(dlsym(RTLD_NEXT, "quick_exit")));
}

[[noreturn]] void EndWith(std::atomic<Exit>& end, int status) {
  tarvo::AwaitCapture();
  if (end.load() == nullptr) FindNext();
  end.load()(status);
  __builtin_unreachable();
}

[[noreturn]] void EndAtOnce(int status) {
  tarvo::AwaitCapture();
  for (;;) tarvo::RawSystemCall(SYS_exit_group, status);
}

}  // namespace

extern "C" {

[[gnu::visibility("default")]] void exit(int status) noexcept { EndWith(g_exit, status); }
[[gnu::visibility("default")]] void quick_exit(int status) noexcept {
  EndWith(g_quickExit, status);
}
[[gnu::visibility("default")]] void _exit(int status) { EndAtOnce(status); }
[[gnu::visibility("default")]] void _Exit(int status) noexcept { EndAtOnce(status); }

}  // extern "C"

#endif
