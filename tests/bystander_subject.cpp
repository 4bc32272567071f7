// A program for the tests: one thread crashes, in a function named Crash…, while another one, the
// bystander, is in the way that the first argument names, in a function named Bystander…. What must
// not happen during the capture prints "ran on". "--ask" in front refuses tracing, so that threads
// are asked for their stacks.

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <link.h>
#include <linux/io_uring.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <thread>

#include "seccomp_filter.h"
#include "tarvo/host/host.h"

extern "C" void __register_frame(void* table);
extern "C" void __deregister_frame(void* table);

#define EXPORTED extern "C" [[gnu::visibility("default"), gnu::noinline]]

namespace {

std::atomic<int> g_running{0};
struct sigaction g_before;  ///< of SIGSEGV

void RanOn() {
  (void)!write(STDOUT_FILENO, "ran on\n", 7);
  _exit(1);
}

}  // namespace

EXPORTED void CrashNullWrite() {
  volatile int* volatile nowhere = nullptr;
  *nowhere = 1;
}

// --- what a bystander does -----------------------------------------------------------------------

EXPORTED void BystanderPolls() {
  ++g_running;
  poll(nullptr, 0, -1);
  RanOn();
}

EXPORTED void BystanderEpolls() {
  epoll_event event{};
  const int queue = epoll_create1(0);
  ++g_running;
  epoll_wait(queue, &event, 1, -1);
  RanOn();
}

EXPORTED void BystanderSleeps() {
  ++g_running;
  sleep(1000);
  RanOn();
}

EXPORTED void BystanderComputes() {
  ++g_running;
  for (std::atomic<unsigned> i{0};; i.fetch_add(1, std::memory_order_relaxed)) {
  }
}

/// As a daemon that reads its configuration again at SIGHUP.
EXPORTED void BystanderAwaitsSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  ++g_running;
  int signal = 0;
  sigwait(&set, &signal);
  RanOn();
}

EXPORTED void BystanderBlocksSignals() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
  ++g_running;
  for (;;) pause();
}

/// One gibibyte, all of it in use.
EXPORTED void BystanderHoldsMemory() {
  constexpr std::size_t kSize = std::size_t{1} << 30;
  std::memset(mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0), 1,
              kSize);
  ++g_running;
  for (;;) pause();
}

/// Ends the process when it may.
EXPORTED void BystanderExits() {
  static void (*const kEnds[])(int) = {exit, _exit, quick_exit};
  static std::atomic<int> next{0};
  void (*const end)(int) = kEnds[next++ % 3];
  ++g_running;
  while (g_running.load() < 1000) usleep(100);
  // Later than the fault, which is the next that the main thread does, and before the report.
  usleep(300);
  end(0);
}

EXPORTED void BystanderOnASmallStack() {
  ++g_running;
  for (;;) pause();
}

/// Each on a larger one, from 4 to 15 KiB: where the kernel's frame for a handler finds room, the
/// handler may not.
void OnASmallStack() {
  constexpr std::size_t kLargest = 16 << 10;
  static std::atomic<std::size_t> next{0};
  thread_local ucontext_t small;
  thread_local ucontext_t back;
  auto* stack = static_cast<char*>(
      mmap(nullptr, 4096 + kLargest, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  mprotect(stack, 4096, PROT_NONE);
  getcontext(&small);
  small.uc_stack.ss_sp = stack + 4096;
  small.uc_stack.ss_size = 4096 + next++ % 12 * 1024;
  makecontext(&small, BystanderOnASmallStack, 0);
  swapcontext(&back, &small);
}

EXPORTED void BystanderWithABrokenStack();
asm(R"(
  .text
  .globl BystanderWithABrokenStack
  .type BystanderWithABrokenStack, @function
BystanderWithABrokenStack:
  .cfi_startproc
  movq $0x1000, %rsp
1:
  pause
  jmp 1b
  .cfi_endproc
  .size BystanderWithABrokenStack, . - BystanderWithABrokenStack
)");

void WithABrokenStack() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
  ++g_running;
  BystanderWithABrokenStack();
}

/// A function whose table leads nowhere, in a stack that is whole.
EXPORTED void BystanderWithAFalseTable();
asm(R"(
  .text
  .globl BystanderWithAFalseTable
  .type BystanderWithAFalseTable, @function
BystanderWithAFalseTable:
  .cfi_startproc
  pushq %rbp
  movq %rsp, %rbp
  movq $0x10, %rbx
  .cfi_def_cfa %rbx, 16
1:
  pause
  jmp 1b
  .cfi_endproc
  .size BystanderWithAFalseTable, . - BystanderWithAFalseTable
)");

/// It blocks the signal of the fault that walking its stack leads to.
void WithAFalseTable() {
  sigset_t fault;
  sigemptyset(&fault);
  sigaddset(&fault, SIGSEGV);
  pthread_sigmask(SIG_BLOCK, &fault, nullptr);
  ++g_running;
  BystanderWithAFalseTable();
}

/// In its own handler for a call through a wild pointer.
EXPORTED void BystanderCallsWildly() {
  struct sigaction own{};
  own.sa_handler = [](int) {
    sigaction(SIGSEGV, &g_before, nullptr);  // the others' faults are the crash handler's again
    ++g_running;
    for (;;) pause();
  };
  sigaction(SIGSEGV, &own, &g_before);
  auto* volatile wild = reinterpret_cast<void (*)()>(0x123000);
  wild();
  asm volatile("");
}

/// As a profiler does: the loader's lock is held until it comes back.
EXPORTED void BystanderListsModules() {
  dl_iterate_phdr(
      [](dl_phdr_info*, std::size_t, void*) {
        ++g_running;
        for (;;) pause();
        return 0;
      },
      nullptr);
}

/// As a compiler of generated code does: a table for code that the unwinder finds nothing of.
EXPORTED void BystanderRegistersFrames() {
  struct Table {
    std::array<std::uint8_t, 32> bytes{20, 0, 0,    0,  0, 0,    0,    0, 1, 'z',  'R',
                                       0,  1, 0x78, 16, 1, 0x00, 0x0c, 7, 8, 0x90, 0x01,
                                       0,  0, 24,   0,  0, 0,    28,   0, 0, 0};
    std::uint64_t start = 0x7000000;
    std::uint64_t size = 0x1000;
    std::uint64_t end = 0;
  } table;
  ++g_running;
  for (;;) {
    __register_frame(&table);
    __deregister_frame(&table);
  }
}

/// With a worker of the kernel's in the process.
EXPORTED void BystanderWithAKernelWorker() {
  io_uring_params parameters{};
  parameters.flags = IORING_SETUP_SQPOLL;
  if (syscall(SYS_io_uring_setup, 8, &parameters) < 0) _exit(77);
  ++g_running;
  for (;;) pause();
}

// --- how the crash comes -------------------------------------------------------------------------

namespace {

/// As runtimes do that know of no other arguments: the one before gets the number alone, and finds
/// in the other arguments' registers what happens to be there.
void PassTheNumber(int signal) {
  g_before.sa_sigaction(signal, reinterpret_cast<siginfo_t*>(1), reinterpret_cast<void*>(1));
}

}  // namespace

EXPORTED void CrashBehindAHandlerOfOneArgument() {
  struct sigaction own{};
  own.sa_handler = PassTheNumber;
  own.sa_flags = SA_ONSTACK;
  sigaction(SIGSEGV, &own, &g_before);
  CrashNullWrite();
}

/// With a stack of its own for handlers, above the thread's own stack.
EXPORTED void CrashBelowItsAlternateStack() {
  constexpr std::size_t kSize = 256 << 10;
  static char* memory = static_cast<char*>(
      mmap(nullptr, 2 * kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstack(&attributes, memory, kSize);
  pthread_t thread;
  pthread_create(
      &thread, &attributes,
      [](void*) -> void* {
        stack_t alternate{};
        alternate.ss_sp = memory + kSize;
        alternate.ss_size = kSize;
        sigaltstack(&alternate, nullptr);
        CrashNullWrite();
        return nullptr;
      },
      nullptr);
  pthread_join(thread, nullptr);
}

/// Returns to where no code is any more; the caller is still on the stack.
EXPORTED void CrashAtItsReturn();
asm(R"(
  .text
  .globl CrashAtItsReturn
  .type CrashAtItsReturn, @function
CrashAtItsReturn:
  .cfi_startproc
  pushq $0x123000
  .cfi_adjust_cfa_offset 8
  retq
  .cfi_endproc
  .size CrashAtItsReturn, . - CrashAtItsReturn
)");

namespace {

/// Code that no table describes.
auto* AsCode(const auto& bytes) {
  void* page =
      mmap(nullptr, 4096, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return reinterpret_cast<void (*)()>(std::memcpy(page, &bytes, sizeof(bytes)));
}

}  // namespace

EXPORTED void CrashInGeneratedCode() {
  // push %rbp; mov %rsp, %rbp; sub $64, %rsp; xor %eax, %eax; mov %eax, (%rax)
  const unsigned char code[] = {0x55, 0x48, 0x89, 0xe5, 0x48, 0x83,
                                0xec, 0x40, 0x31, 0xc0, 0x89, 0x00};
  AsCode(code)();
  asm volatile("");
}

/// In code that keeps no frame pointer, called by code that does.
EXPORTED void CrashInAGeneratedLeaf() {
  // sub $8, %rsp; xor %eax, %eax; mov %eax, (%rax)
  const unsigned char code[] = {0x48, 0x83, 0xec, 0x08, 0x31, 0xc0, 0x89, 0x00};
  asm volatile("" : : "r"(__builtin_frame_address(0)));
  AsCode(code)();
  asm volatile("");
}

/// Beside the first crash, which is held up.
EXPORTED void BystanderCrashesToo() {
  ++g_running;
  while (g_running.load() <= 1000) usleep(1000);
  usleep(200'000);
  CrashInGeneratedCode();
}

/// The modules cannot be listed for a second.
EXPORTED void CrashHeldUp() {
  std::thread(BystanderListsModules).detach();
  while (g_running.load() == 1000) usleep(1000);
  CrashNullWrite();
}

/// First in a vfork child, which has this process's memory, then in the process.
EXPORTED void CrashAfterAVforkChild() {
  const pid_t child = vfork();
  if (child == 0) CrashNullWrite();
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 1) _exit(6);
  CrashNullWrite();
}

EXPORTED void CrashWithoutDescriptors() {
  const rlimit limit{64, 64};
  setrlimit(RLIMIT_NOFILE, &limit);
  while (open("/dev/null", O_RDONLY) >= 0) {
  }
  CrashNullWrite();
}

/// Once a debugger or its like holds the process.
EXPORTED void CrashUnderATracer() {
  for (bool isTraced = false; !isTraced; usleep(1000)) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
      isTraced = isTraced || (line.starts_with("TracerPid:") && line != "TracerPid:\t0");
  }
  usleep(300'000);
  CrashNullWrite();
}

/// While somebody stops the process now and then.
EXPORTED void CrashBetweenStops() {
  const pid_t self = getpid();
  if (fork() == 0) {
    for (int i = 0; i < 10 && kill(self, SIGSTOP) == 0; ++i) {
      usleep(10'000);
      kill(self, SIGCONT);
      usleep(500);
    }
    _exit(0);
  }
  CrashNullWrite();
}

/// While somebody kills the first process that the crash starts.
EXPORTED void CrashWithoutItsTracer() {
  const std::string children = "/proc/self/task/" + std::to_string(getpid()) + "/children";
  const int list = open(children.c_str(), O_RDONLY | O_CLOEXEC);
  if (fork() == 0) {
    for (pid_t child = 0; child == 0 && getppid() != 1;) {
      char text[64] = {};
      if (pread(list, text, sizeof(text) - 1, 0) < 0) _exit(6);
      std::istringstream numbers(text);
      for (pid_t next = 0; numbers >> next;)
        if (next != getpid()) child = next;
      if (child != 0) kill(child, SIGKILL);
    }
    _exit(0);
  }
  CrashNullWrite();
}

EXPORTED void CrashWithoutItsTracerAndWait() {
  if (!InstallSeccompFilter(SYS_wait4, SECCOMP_RET_ERRNO | EPERM)) _exit(5);
  CrashWithoutItsTracer();
}

/// With thousands of copies of a small library.
EXPORTED void CrashWithManyModules() {
  std::ifstream original(std::string(program_invocation_name)
                                 .substr(0, std::string(program_invocation_name).rfind('/') + 1) +
                             "small_library.so",
                         std::ios::binary);
  const std::string bytes(std::istreambuf_iterator<char>(original), {});
  char folder[] = "/tmp/tarvo-modules-XXXXXX";
  if (mkdtemp(folder) == nullptr) _exit(6);
  for (int i = 0; i < 5000; ++i) {
    const std::string path = std::string(folder) + "/" + std::to_string(i) + ".so";
    std::ofstream(path, std::ios::binary) << bytes;
    if (dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL) == nullptr) _exit(6);
    unlink(path.c_str());
  }
  rmdir(folder);
  CrashNullWrite();
}

/// In a process whose /proc is another pid namespace's, and names other threads.
EXPORTED void CrashInAPidNamespace() {
  if (unshare(CLONE_NEWPID) != 0) _exit(77);
  const pid_t child = fork();
  if (child == 0) CrashNullWrite();
  int status = 0;
  waitpid(child, &status, 0);
  _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 6);
}

EXPORTED void CrashWithoutProc() {
  const std::string folder = "/tmp/tarvo-empty-root";
  mkdir(folder.c_str(), 0700);
  // As a daemon does that shuts itself in: nothing is left open.
  if (chroot(folder.c_str()) != 0 || chdir("/") != 0) _exit(77);
  close_range(3, ~0U, 0);
  CrashNullWrite();
}

EXPORTED void CrashAsAnotherUser() {
  if (setresgid(65534, 65534, 65534) != 0 || setresuid(65534, 65534, 65534) != 0) _exit(77);
  CrashNullWrite();
}

namespace {

template <long kCall, int kError>
void CrashInASandbox() {
  if (!InstallSeccompFilter(kCall, SECCOMP_RET_ERRNO | kError)) _exit(5);
  CrashNullWrite();
}

const std::map<std::string, void (*)()> kBystanders = {
    {"polls", BystanderPolls},
    {"epolls", BystanderEpolls},
    {"sleeps", BystanderSleeps},
    {"computes", BystanderComputes},
    {"awaits-signals", BystanderAwaitsSignals},
    {"blocks-signals", BystanderBlocksSignals},
    {"holds-memory", BystanderHoldsMemory},
    {"exits", BystanderExits},
    {"small-stack", OnASmallStack},
    {"broken-stack", WithABrokenStack},
    {"false-table", WithAFalseTable},
    {"calls-wildly", BystanderCallsWildly},
    {"lists-modules", BystanderListsModules},
    {"registers-frames", BystanderRegistersFrames},
    {"crashes-too", BystanderCrashesToo},
    {"kernel-worker", BystanderWithAKernelWorker}};

/// For others to look at.
void Hold() {
  for (;;) pause();
}

const std::map<std::string, void (*)()> kCrashes = {
    {"hold", Hold},
    {"null-write", CrashNullWrite},
    {"one-argument", CrashBehindAHandlerOfOneArgument},
    {"alternate-stack-above", CrashBelowItsAlternateStack},
    {"return", CrashAtItsReturn},
    {"generated-code", CrashInGeneratedCode},
    {"generated-leaf", CrashInAGeneratedLeaf},
    {"held-up", CrashHeldUp},
    {"vfork", CrashAfterAVforkChild},
    {"no-descriptors", CrashWithoutDescriptors},
    {"no-proc", CrashWithoutProc},
    {"foreign-proc", CrashInAPidNamespace},
    {"another-user", CrashAsAnotherUser},
    {"tracer", CrashUnderATracer},
    {"stops", CrashBetweenStops},
    {"no-tracer", CrashWithoutItsTracer},
    {"no-tracer-no-wait", CrashWithoutItsTracerAndWait},
    {"many-modules", CrashWithManyModules},
    {"no-clone", CrashInASandbox<SYS_clone, EPERM>},
    {"no-ptrace", CrashInASandbox<SYS_ptrace, ENOSYS>},
    {"no-tgkill", CrashInASandbox<SYS_tgkill, EPERM>},
    {"no-wait", CrashInASandbox<SYS_wait4, EPERM>}};

}  // namespace

EXPORTED void BystanderThread(void (*work)()) {
  work();
  asm volatile("");
}

/// bystander_subject [--ask] BYSTANDER COUNT CRASH [--g_…]; prints "ready" right before the crash.
int main(int argc, char** argv) {
  auto host = tarvo::Host::Start({.arguments = tarvo::TakeConfigurationArguments(argc, argv)});
  if (!host) return 2;
  const bool asks = argc > 1 && std::string(argv[1]) == "--ask";
  if (asks && !InstallSeccompFilter(SYS_ptrace, SECCOMP_RET_ERRNO | EPERM)) return 5;
  char** words = argv + (asks ? 1 : 0);
  if (argc != (asks ? 5 : 4) || !kBystanders.contains(words[1]) || !kCrashes.contains(words[3]))
    return 4;
  const int count = std::atoi(words[2]);
  for (int i = 0; i < count; ++i) std::thread(BystanderThread, kBystanders.at(words[1])).detach();
  while (g_running.load() < count) usleep(1000);
  usleep(20'000);
  std::puts("ready");
  std::fflush(stdout);
  g_running.store(1000);
  kCrashes.at(words[3])();
  return 0;
}
