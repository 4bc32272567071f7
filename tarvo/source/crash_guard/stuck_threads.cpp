#include "crash_guard/stuck_threads.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/openat2.h>
#include <linux/seccomp.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

#include "crash_context/proc_files.h"
#include "crash_guard/signal_entry.h"

namespace tarvo {
namespace {

/// More are not passed over.
constexpr int kMaximumStuck = 32;
/// Comes back with the filter's signals.
constexpr std::uint16_t kMark = 0x7A70;
constexpr const char* kTaskFolder = "/proc/self/task/";

pid_t g_stuck[kMaximumStuck];
int g_stuckCount = 0;

/// The number in front of `rest`, which is moved behind it; 0 when there is none.
pid_t TakeNumber(const char*& rest) {
  pid_t number = 0;
  for (; *rest >= '0' && *rest <= '9'; ++rest) number = 10 * number + (*rest - '0');
  return number;
}

/// The state in a thread's stat file: the letter behind the name, which is in the last brackets.
char StateOf(pid_t thread) {
  const int file = open(TaskPath(thread, "stat").Text(), O_RDONLY | O_CLOEXEC);
  char text[256];
  const ssize_t size = file < 0 ? 0 : read(file, text, sizeof(text) - 1);
  if (file >= 0) close(file);
  text[size < 0 ? 0 : size] = '\0';
  const char* bracket = strrchr(text, ')');
  return bracket == nullptr || bracket[1] != ' ' ? '\0' : bracket[2];
}

/// D: uninterruptible; t: stopped by a tracer.
bool IsStuck(pid_t thread) {
  const char state = StateOf(thread);
  return state == 'D' || state == 't';
}

void FindStuckThreads() {
  const int folder = open(kTaskFolder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return;
  ForEachNumber(folder, [](pid_t thread) {
    if (g_stuckCount < kMaximumStuck && IsStuck(thread)) g_stuck[g_stuckCount++] = thread;
    return true;
  });
  close(folder);
}

constexpr std::uint32_t Argument(unsigned index) {
  return offsetof(seccomp_data, args) + index * sizeof(std::uint64_t);
}

/// The filter, as instructions: each jumps over those that follow it.
struct Filter {
  sock_filter code[16 + 2 * kMaximumStuck];
  unsigned short size = 0;

  void Add(sock_filter instruction) { code[size++] = instruction; }
  void Load(std::uint32_t offset) { Add(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offset)); }
  void Return(std::uint32_t what) { Add(BPF_STMT(BPF_RET | BPF_K, what)); }
  void SkipUnless(std::uint32_t value, unsigned char count) {
    Add(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, count));
  }
};

Filter MakeFilter() {
  Filter filter{};
  // No look at the architecture: the thread runs the capture, which has calls of this one only.
  filter.Load(offsetof(seccomp_data, nr));
  filter.SkipUnless(SYS_openat, 4);
  filter.Load(Argument(2));
  filter.Add(BPF_STMT(BPF_ALU | BPF_AND | BPF_K, O_ACCMODE));
  filter.SkipUnless(O_RDONLY, 1);
  filter.Return(SECCOMP_RET_TRAP | kMark);
  // Here the number is gone for an opening for writing, which is no ptrace either way.
  filter.Load(offsetof(seccomp_data, nr));
  filter.SkipUnless(SYS_ptrace, static_cast<unsigned char>(3 + 2 * g_stuckCount));
  filter.Load(Argument(0));
  filter.SkipUnless(PTRACE_ATTACH, static_cast<unsigned char>(1 + 2 * g_stuckCount));
  filter.Load(Argument(1));
  for (int i = 0; i < g_stuckCount; ++i) {
    filter.SkipUnless(static_cast<std::uint32_t>(g_stuck[i]), 1);
    filter.Return(SECCOMP_RET_ERRNO | ESRCH);
  }
  filter.Return(SECCOMP_RET_ALLOW);
  return filter;
}

/// For the calling thread, and for processes that it forks.
bool Install(Filter& filter) {
  struct sigaction action = {};
  action.sa_sigaction = GuardSignal;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  const sock_fprog program{filter.size, filter.code};
  return sigaction(SIGSYS, &action, nullptr) == 0 && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &program) == 0;
}

/// Whether `path` is the status file of a stuck thread.
bool IsStuckStatus(const char* path) {
  const std::size_t prefix = strlen(kTaskFolder);
  if (strncmp(path, kTaskFolder, prefix) != 0) return false;
  const char* rest = path + prefix;
  const pid_t thread = TakeNumber(rest);
  if (strcmp(rest, "/status") != 0) return false;
  for (int i = 0; i < g_stuckCount; ++i)
    if (g_stuck[i] == thread) return true;
  return false;
}

}  // namespace

int PassOverStuckThreads() {
  FindStuckThreads();
  if (g_stuckCount == 0) return 0;
  Filter filter = MakeFilter();
  if (!Install(filter)) g_stuckCount = 0;
  return g_stuckCount;
}

bool IsRefusedOpen(const siginfo_t& info) {
  return info.si_signo == SIGSYS && info.si_errno == kMark && info.si_syscall == SYS_openat;
}

void AnswerOpen(void* context) {
  greg_t* registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
  const auto* path = reinterpret_cast<const char*>(registers[REG_RSI]);
  if (IsStuckStatus(path)) {
    registers[REG_RAX] = -ENOENT;
    return;
  }
  // Another system call than the one that the filter stops.
  open_how how{};
  how.flags = static_cast<std::uint32_t>(registers[REG_RDX]);
  const long file =
      syscall(SYS_openat2, static_cast<int>(registers[REG_RDI]), path, &how, sizeof(how));
  registers[REG_RAX] = file < 0 ? -errno : file;
}

}  // namespace tarvo
