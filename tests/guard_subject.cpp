// A program for the tests of the crash guard: does what its first argument names, with the guard
// on. What it prints is compared as a whole.

#include <fcntl.h>
#include <pthread.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <threads.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <barrier>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "tarvo/crashhandler.h"
#include "tarvo/host/host.h"

namespace {

std::vector<std::string> g_configuration;
volatile int g_sink = 0;

std::unique_ptr<tarvo::Host> StartHost() {
  auto host = tarvo::Host::Start({.arguments = g_configuration, .crashGuard = {.enabled = true}});
  if (!host) {
    std::fprintf(stderr, "%s\n", host.GetError().Text().ToStdString().c_str());
    std::exit(2);
  }
  return *std::move(host);
}

tarvo::Ref<tarvo::CrashHandler> Service(tarvo::Host& host) {
  return *tarvo::Bind<tarvo::CrashHandler>(host.Services());
}

[[gnu::noinline]] void NullWrite() {
  volatile int* volatile nowhere = nullptr;
  *nowhere = 1;
}

[[gnu::noinline]] int Overflow(int depth) {
  volatile char used[500] = {};
  used[0] = static_cast<char>(depth);
  if (depth < 0) return 0;
  return Overflow(depth + 1) + used[0];
}

void WaitForever() {
  for (;;) pause();
}

void Start(void (*work)()) { std::thread(work).detach(); }

// --- registers -----------------------------------------------------------------------------------

extern "C" {
void FaultWithKnownRegisters();
extern char KnownFault;
alignas(16) char g_knownStack[64];
}
asm(R"(
  .text
  .globl FaultWithKnownRegisters
FaultWithKnownRegisters:
  leaq g_knownStack(%rip), %rsp
  movq $0xA1, %rax
  movq $0xB1, %rbx
  movq $0xC1, %rcx
  movq $0xD1, %rdx
  movq $0x51, %rsi
  movq $0xD2, %rdi
  movq $0xB2, %rbp
  movq $0x08, %r8
  movq $0x09, %r9
  movq $0x10, %r10
  movq $0x11, %r11
  movq $0x12, %r12
  movq $0x13, %r13
  movq $0x14, %r14
  movabsq $0xFEDCBA9876543210, %r15
  .globl KnownFault
KnownFault:
  movb $1, 0x15F(%rax)
)");

int KnownRegisters() {
  const auto host = StartHost();
  std::printf("0x%016lx 0x%016lx\n", reinterpret_cast<unsigned long>(&KnownFault),
              reinterpret_cast<unsigned long>(g_knownStack));
  std::fflush(stdout);
  FaultWithKnownRegisters();
  return 0;
}

int Killed() {
  const auto host = StartHost();
  std::printf("process %d, user %d", getpid(), static_cast<int>(getuid()));
  std::fflush(stdout);
  kill(getpid(), SIGBUS);
  return 0;
}

// --- stacks --------------------------------------------------------------------------------------

int OverflowInC11Thread() {
  const auto host = StartHost();
  thrd_t thread;
  thrd_create(&thread, [](void*) { return Overflow(0); }, nullptr);
  return thrd_join(thread, nullptr);
}

/// Threads overflow at the same moment; all but one wait on their alternate stacks and answer
/// there.
int ManyOverflows() {
  const auto host = StartHost();
  static std::barrier together(8);
  for (int i = 0; i < 8; ++i)
    Start([] {
      together.arrive_and_wait();
      g_sink = Overflow(0);
    });
  WaitForever();
  return 0;
}

/// Goes on until not even a signal frame fits below.
[[gnu::noinline]] void WaitAtTheEdge(const char* lowest, std::atomic<bool>& isThere) {
  volatile char used[200] = {};
  if (reinterpret_cast<const volatile char*>(&used) - lowest > 1200) {
    WaitAtTheEdge(lowest, isThere);
  } else {
    isThere = true;
    while (g_sink == 0) used[0] = static_cast<char>(used[0] + 1);
  }
  used[0] = 1;
}

int EdgeOfTheStack() {
  const auto host = StartHost();
  static std::atomic<bool> isThere{false};
  Start([] {
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    void* lowest = nullptr;
    std::size_t size = 0;
    pthread_attr_getstack(&attributes, &lowest, &size);
    WaitAtTheEdge(static_cast<const char*>(lowest), isThere);
  });
  while (!isThere) usleep(1000);
  NullWrite();
  return 0;
}

std::size_t Mappings() {
  std::ifstream maps("/proc/self/maps");
  std::size_t count = 0;
  for (std::string line; std::getline(maps, line);) ++count;
  return count;
}

void* EndByReturn(void*) { return nullptr; }
void* EndByExit(void*) { pthread_exit(nullptr); }
void* EndByCancellation(void*) {
  WaitForever();
  return nullptr;
}

void EndThreads(int count) {
  for (int i = 0; i < count; ++i) {
    for (auto* const routine : {EndByReturn, EndByExit, EndByCancellation}) {
      pthread_t thread;
      pthread_create(&thread, nullptr, routine, nullptr);
      if (routine == EndByCancellation) pthread_cancel(thread);
      pthread_join(thread, nullptr);
    }
    thrd_t thread;
    thrd_create(&thread, [](void*) { return 7; }, nullptr);
    int result = 0;
    thrd_join(thread, &result);
    if (result != 7) std::puts("a thread's result is lost");
  }
}

int ThreadEnds() {
  const auto host = StartHost();
  EndThreads(20);
  const std::size_t before = Mappings();
  EndThreads(100);
  const std::size_t after = Mappings();
  if (after > before + 20) std::printf("%zu mappings have become %zu\n", before, after);
  std::puts("ended");
  return 0;
}

/// A thread's alternate stack as the kernel has it.
int StackSizes() {
  const auto print = [] {
    stack_t stack{};
    sigaltstack(nullptr, &stack);
    std::printf("%s %zu\n", (stack.ss_flags & SS_DISABLE) != 0 ? "none" : "there", stack.ss_size);
  };
  const auto host = StartHost();
  print();
  std::thread(print).join();
  // A thread whose attributes leave it hardly any stack of its own.
  pthread_attr_t small;
  pthread_attr_init(&small);
  pthread_attr_setstacksize(&small, 64 * 1024);
  pthread_t thread;
  pthread_create(
      &thread, &small,
      [](void* run) -> void* {
        (*static_cast<decltype(print)*>(run))();
        return nullptr;
      },
      const_cast<void*>(static_cast<const void*>(&print)));
  pthread_join(thread, nullptr);
  return 0;
}

// --- the program's own handlers ------------------------------------------------------------------

thread_local sigjmp_buf* t_recovery = nullptr;
struct sigaction g_replaced;

/// Recovers from the fault that is announced; for others: `Decline`.
template <void (*Decline)(int, siginfo_t*, void*)>
void Recover(int signal, siginfo_t* info, void* context) {
  if (t_recovery != nullptr) siglongjmp(*t_recovery, 1);
  Decline(signal, info, context);
}
using Handler = void (*)(int, siginfo_t*, void*);

void SetDefault(int signal, siginfo_t*, void*) { ::signal(signal, SIG_DFL); }
void SetDefaultAndRaise(int signal, siginfo_t*, void*) {
  ::signal(signal, SIG_DFL);
  raise(signal);
}
void SetDefaultBySigset(int signal, siginfo_t*, void*) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  sigset(signal, SIG_DFL);  // editors of a certain age do
#pragma GCC diagnostic pop
  kill(getpid(), signal);
}
void Return(int, siginfo_t*, void*) {}
void CallReplaced(int signal, siginfo_t* info, void* context) {
  g_replaced.sa_sigaction(signal, info, context);
}
void PutReplacedBack(int signal, siginfo_t*, void*) { sigaction(signal, &g_replaced, nullptr); }

void Install(Handler handler, bool once = false) {
  struct sigaction action = {};
  action.sa_sigaction = handler;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  if (once) action.sa_flags |= static_cast<int>(SA_RESETHAND);
  sigaction(SIGSEGV, &action, &g_replaced);
}

void FaultAndRecover() {
  sigjmp_buf here;
  t_recovery = &here;
  if (sigsetjmp(here, 1) == 0) NullWrite();
  t_recovery = nullptr;
  std::puts("recovered");
  std::fflush(stdout);
}

/// The handler is there before the host (or comes after it), recovers twice, in two threads, and
/// then declines.
template <Handler kHandler, bool kBefore, bool kOnce = false>
int Recovering() {
  if (kBefore) Install(kHandler, kOnce);
  const auto host = StartHost();
  if (!kBefore) Install(kHandler, kOnce);
  if (!kOnce) {
    FaultAndRecover();
    std::thread(FaultAndRecover).join();
  }
  NullWrite();
  return 0;
}

/// A handler that makes the fault go away and returns.
int Repairing() {
  static char* page = nullptr;
  page = static_cast<char*>(mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  Install([](int signal, siginfo_t* info, void*) {
    if (info->si_addr == page) {
      mprotect(page, 4096, PROT_READ | PROT_WRITE);
    } else {
      ::signal(signal, SIG_DFL);
    }
  });
  const auto host = StartHost();
  *static_cast<volatile char*>(page) = 1;
  std::puts("recovered");
  std::fflush(stdout);
  NullWrite();
  return 0;
}

int Restored() {
  const auto handlers = [] {
    std::array<struct sigaction, 7> actions{};
    int i = 0;
    for (const int signal : {SIGSEGV, SIGILL, SIGBUS, SIGSYS, SIGTRAP, SIGFPE, SIGABRT})
      sigaction(signal, nullptr, &actions[static_cast<std::size_t>(i++)]);
    return actions;
  };
  const auto count = [&](const auto& one, const auto& other) {
    int same = 0;
    for (std::size_t i = 0; i < one.size(); ++i)
      same += one[i].sa_sigaction == other[i].sa_sigaction ? 1 : 0;
    return same;
  };
  const auto before = handlers();
  const auto terminate = std::get_terminate();
  for (int round = 0; round < 2; ++round) {
    auto host = StartHost();
    std::printf("with the host %d are as before", count(before, handlers()));
    host.reset();
    std::printf(", then %d, terminate %s\n", count(before, handlers()),
                std::get_terminate() == terminate ? "too" : "not");
  }
  return 0;
}

// --- captures that do not end --------------------------------------------------------------------

/// What the callback wrote into a stream is flushed.
int LateCallback() {
  const auto host = StartHost();
  Service(*host)->SetCallback([](const tarvo::CrashInfo*) {
    std::fputs("half of it", stdout);
    WaitForever();
  });
  NullWrite();
  return 0;
}

int LateWithStreamsHeld() {
  const auto host = StartHost();
  Start([] {
    flockfile(stdout);
    WaitForever();
  });
  usleep(20'000);
  Service(*host)->SetCallback([](const tarvo::CrashInfo*) { WaitForever(); });
  NullWrite();
  return 0;
}

/// The capturing thread itself is where no signal reaches it.
int StuckCapture() {
  const auto host = StartHost();
  Service(*host)->SetSecondaryCallback([](const tarvo::CrashInfo*) {
    if (vfork() == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      WaitForever();
    }
  });
  NullWrite();
  return 0;
}

int CrashInFork() {
  const auto host = StartHost();
  const pid_t child = fork();
  if (child == 0) std::thread([] { g_sink = Overflow(0); }).join();
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 1 ? 0 : 3;
}

const std::map<std::string, int (*)()> kScenarios = {
    {"known-registers", KnownRegisters},
    {"killed", Killed},
    {"c11-thread", OverflowInC11Thread},
    {"many-overflows", ManyOverflows},
    {"edge-of-the-stack", EdgeOfTheStack},
    {"thread-ends", ThreadEnds},
    {"stack-sizes", StackSizes},
    {"before-default", Recovering<Recover<SetDefault>, true>},
    {"before-raise", Recovering<Recover<SetDefaultAndRaise>, true>},
    {"before-once", Recovering<Return, true, true>},
    {"before-repair", Repairing},
    {"after-call", Recovering<Recover<CallReplaced>, false>},
    {"after-put-back", Recovering<Recover<PutReplacedBack>, false>},
    {"after-default", Recovering<Recover<SetDefault>, false>},
    {"after-raise", Recovering<Recover<SetDefaultAndRaise>, false>},
    {"after-sigset", Recovering<Recover<SetDefaultBySigset>, false>},
    {"restored", Restored},
    {"late-callback", LateCallback},
    {"late-streams-held", LateWithStreamsHeld},
    {"stuck-capture", StuckCapture},
    {"forked-overflow", CrashInFork}};

}  // namespace

int main(int argc, char** argv) {
  g_configuration = tarvo::TakeConfigurationArguments(argc, argv);
  const auto scenario = argc == 2 ? kScenarios.find(argv[1]) : kScenarios.end();
  return scenario == kScenarios.end() ? 4 : scenario->second();
}
