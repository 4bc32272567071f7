#include "faults.h"

#include <dlfcn.h>
#include <errno.h>
#include <linux/seccomp.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <barrier>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "seccomp_filter.h"

// The functions that crash have C names, so that a report shows them as they stand here.

namespace {

using Function = void (*)();

int g_table[64] = {1};
volatile int g_sink = 0;
volatile int g_deepest = -1;

[[gnu::noinline]] void Call(Function target) {
  // What is called is not for the compiler to know.
  asm volatile("" : "+r"(target));
  target();
}

/// A handler as language runtimes have one: it knows the faults that it caused itself, and leaves
/// all others to the handler that was there before.
thread_local sigjmp_buf* t_probe = nullptr;
struct sigaction g_beforeProbe;

void OnProbe(int signal, siginfo_t* info, void* context) {
  if (t_probe != nullptr) siglongjmp(*t_probe, 1);
  if ((g_beforeProbe.sa_flags & SA_SIGINFO) != 0) {
    g_beforeProbe.sa_sigaction(signal, info, context);
  } else {
    sigaction(signal, &g_beforeProbe, nullptr);
  }
}

/// Whether `address` can be read.
bool Probe(const volatile int* address) {
  sigjmp_buf back;
  if (sigsetjmp(back, 1) != 0) {
    t_probe = nullptr;
    return false;
  }
  t_probe = &back;
  g_sink = *address;
  t_probe = nullptr;
  return true;
}

}  // namespace

extern "C" {

void CrashNullWrite() {
  volatile int* volatile nowhere = nullptr;
  *nowhere = 1;
}

void CrashNullCall() { Call(nullptr); }

void CrashWildCall() { Call(reinterpret_cast<Function>(std::uintptr_t{0x2AAA'DEAD'B000})); }

void CrashDataCall() { Call(reinterpret_cast<Function>(&g_table)); }

void CrashIllegal() { asm volatile("ud2"); }

void CrashBus() {
  const long page = sysconf(_SC_PAGESIZE);
  const int file = memfd_create("scene", 0);
  void* map = mmap(nullptr, static_cast<std::size_t>(page), PROT_READ, MAP_SHARED, file, 0);
  // The file is empty: its first page is past its end.
  g_sink = *static_cast<volatile int*>(map);
}

void CrashDivide() {
  volatile int dividend = 2204;
  volatile int zero = 0;
  g_sink = dividend / zero;
}

void CrashTrap() { asm volatile("int3"); }

void CrashSys() {
  if (!InstallSeccompFilter(SYS_acct, SECCOMP_RET_TRAP)) return;
  syscall(SYS_acct, nullptr);
}

void CrashDouble() {
  std::barrier together(2);
  std::thread second([&] {
    together.arrive_and_wait();
    CrashDivide();
  });
  together.arrive_and_wait();
  CrashNullWrite();
  second.join();
}

void CrashInMalloc() {
  constexpr std::size_t kLarge = 5000;
  void** freed = static_cast<void**>(std::malloc(kLarge));
  // Keeps the freed block from being merged with the top of the heap.
  void* volatile fence = std::malloc(kLarge);
  // The allocator will follow the freed block's links, with its lock held.
  void* volatile* link = freed + 1;
  asm volatile("" : "+r"(link));
  std::free(freed);
  *link = reinterpret_cast<void*>(std::uintptr_t{0x10});
  g_sink = std::malloc(2 * kLarge) == fence;
}

void CrashInConstructor() {
  if (dlopen("broken_plugin.so", RTLD_NOW) == nullptr) std::fprintf(stderr, "%s\n", dlerror());
}

void CrashAfterHangup() {
  kill(getpid(), SIGHUP);
  // Any thread may take it; give it the time.
  usleep(50'000);
  CrashNullWrite();
}

void CrashWithoutTracing() {
  if (!InstallSeccompFilter(SYS_ptrace, SECCOMP_RET_ERRNO | EPERM)) return;
  CrashNullWrite();
}

int CrashStackOverflow(int depth) {
  volatile char used[200] = {};
  used[0] = static_cast<char>(depth);
  if (depth == g_deepest) return 0;
  return CrashStackOverflow(depth + 1) + used[0];
}

void CrashAbort() { Call(std::abort); }

void CrashUncaught() { throw std::out_of_range("tile 2204 of 318"); }

void CrashHeapCorruption() {
  // The allocator keeps a block's size in front of it. Damage to a neighbour would be found out
  // there too, but what the neighbours are is for the allocator to say.
  char* block = static_cast<char*>(std::malloc(2000));
  char* front = block - sizeof(std::size_t);
  asm volatile("" : "+r"(front));
  for (std::size_t i = 0; i < sizeof(std::size_t); ++i) front[i] = 'x';
  asm volatile("" : : : "memory");
  std::free(block);
}

void CrashAfterRecovery() {
  struct sigaction action = {};
  action.sa_sigaction = OnProbe;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigaction(SIGSEGV, &action, &g_beforeProbe);
  if (Probe(nullptr)) return;
  CrashNullWrite();
}

}  // extern "C"

namespace {

constexpr Fault kFaults[] = {
    {"null-write", "write through a null pointer", CrashNullWrite, "CrashNullWrite"},
    {"null-call", "call a null function pointer", CrashNullCall, "CrashNullCall"},
    {"wild-call", "call an address that is not mapped", CrashWildCall, "CrashWildCall"},
    {"data-call", "call into data", CrashDataCall, "CrashDataCall"},
    {"illegal", "run an illegal instruction", CrashIllegal, "CrashIllegal"},
    {"bus", "read past the end of a mapped file", CrashBus, "CrashBus"},
    {"divide", "divide by zero", CrashDivide, "CrashDivide"},
    {"trap", "run a breakpoint instruction", CrashTrap, "CrashTrap"},
    {"sys", "make a system call that a seccomp filter traps", CrashSys, "CrashSys"},
    {"double", "crash in two threads at once", CrashDouble, "Crash"},
    {"in-malloc", "crash inside malloc, its lock held", CrashInMalloc, "CrashInMalloc"},
    {"busy-malloc", "null-write while every other thread allocates", CrashNullWrite,
     "CrashNullWrite"},
    {"in-constructor", "load a plug-in whose constructor crashes", CrashInConstructor,
     "CrashInConstructor"},
    {"blocked-thread", "null-write while a thread blocks all signals", CrashNullWrite,
     "CrashNullWrite"},
    {"hangup", "null-write after a SIGHUP", CrashAfterHangup, "CrashAfterHangup"},
    {"tracing-refused", "null-write where the kernel refuses tracing", CrashWithoutTracing,
     "CrashWithoutTracing"},
    {"stack-overflow", "recurse without end", [] { g_sink = CrashStackOverflow(0); },
     "CrashStackOverflow"},
    {"abort", "call abort", CrashAbort, "CrashAbort"},
    {"uncaught-exception", "throw where nobody catches", CrashUncaught, "CrashUncaught"},
    {"heap-corruption", "write in front of a block; free finds out", CrashHeapCorruption,
     "CrashHeapCorruption"},
    {"stuck-thread", "null-write while a thread cannot be interrupted", CrashNullWrite,
     "CrashNullWrite"},
    {"recovering-handler", "null-write after the program's own handler recovered",
     CrashAfterRecovery, "CrashAfterRecovery"}};

}  // namespace

std::span<const Fault> AllFaults() { return kFaults; }
