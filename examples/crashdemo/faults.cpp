#include "faults.h"

#include <dlfcn.h>
#include <errno.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <barrier>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "seccomp_filter.h"

// The functions that crash have C names, so that a report shows them as they stand here.

namespace {

using Function = void (*)();

int g_table[64] = {1};
volatile int g_sink = 0;

[[gnu::noinline]] void Call(Function target) {
  // What is called is not for the compiler to know.
  asm volatile("" : "+r"(target));
  target();
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
     "CrashWithoutTracing"}};

}  // namespace

std::span<const Fault> AllFaults() { return kFaults; }
