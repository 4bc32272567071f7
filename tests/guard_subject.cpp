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
#include <cstring>
#include <exception>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "guard_subject.h"
#include "tarvo/crash_callbacks.h"
#include "tarvo/crashhandler.h"

namespace {

volatile int g_sink = 0;
std::vector<std::string> g_configuration;

tarvo::Ref<tarvo::CrashHandler> Service(tarvo::Host& host) {
  return *tarvo::Bind<tarvo::CrashHandler>(host.Services());
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

/// Waits where no signal and no tracer reaches it, until this process ends.
void Stick() {
  if (vfork() == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    WaitForever();
  }
}

/// The capturing thread itself is where no signal reaches it.
int StuckCapture() {
  const auto host = StartHost();
  Service(*host)->SetSecondaryCallback([](const tarvo::CrashInfo*) { Stick(); });
  NullWrite();
  return 0;
}

// --- callbacks -----------------------------------------------------------------------------------

void Print(const char* text) { (void)!write(STDERR_FILENO, text, std::strlen(text)); }

/// Its data, the report's path and the report's beginning.
void PrintReport(const tarvo::WrittenReport* report, void* data) {
  char start[19] = {};
  (void)!read(report->descriptor, start, sizeof(start) - 1);
  for (const char* text :
       {static_cast<const char*>(data), report->path, " ", std::as_const(start), "\n"})
    Print(text);
}

tarvo::CrashCallback g_writer = nullptr;
char g_first[] = "first ";
char g_second[] = "second ";
char g_removed[] = "removed ";

/// All ways to be called at once: none is in another one's way.
int AllCallbacks() {
  auto host = tarvo::Host::Start(
      {.arguments = g_configuration,
       .reportCallbacks = {{PrintReport, g_first}},
       .crashGuard = {.enabled = true, .reraise = true, .report = "%p_bugreport.txt"}});
  const auto chain = *tarvo::Bind<tarvo::CrashCallbacks>((*host)->Services());
  g_writer = chain->Writer();
  Service(**host)->SetCallback([](const tarvo::CrashInfo* crash) {
    Print("before\n");
    g_writer(crash);
  });
  Service(**host)->SetSecondaryCallback([](const tarvo::CrashInfo*) { Print("secondary\n"); });
  (void)chain->Append({[](const tarvo::WrittenReport*, void*) { NullWrite(); }, nullptr});
  (void)chain->Append({PrintReport, g_removed});
  (void)chain->Append({PrintReport, g_second});
  chain->Remove({PrintReport, g_removed});
  std::printf("%d\n", getpid());
  std::fflush(stdout);
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

const Scenarios kScenarios = {{"known-registers", KnownRegisters},
                              {"killed", Killed},
                              {"c11-thread", OverflowInC11Thread},
                              {"many-overflows", ManyOverflows},
                              {"edge-of-the-stack", EdgeOfTheStack},
                              {"thread-ends", ThreadEnds},
                              {"stack-sizes", StackSizes},
                              {"late-callback", LateCallback},
                              {"late-streams-held", LateWithStreamsHeld},
                              {"stuck-capture", StuckCapture},
                              {"all-callbacks", AllCallbacks},
                              {"forked-overflow", CrashInFork}};

}  // namespace

std::unique_ptr<tarvo::Host> StartHost(const char* report) {
  auto host = tarvo::Host::Start(
      {.arguments = g_configuration, .crashGuard = {.enabled = true, .report = report}});
  if (!host) {
    std::fprintf(stderr, "%s\n", host.GetError().Text().ToStdString().c_str());
    std::exit(2);
  }
  return *std::move(host);
}

void NullWrite() {
  volatile int* volatile nowhere = nullptr;
  *nowhere = 1;
}

int main(int argc, char** argv) {
  g_configuration = tarvo::TakeConfigurationArguments(argc, argv);
  if (argc != 2) return 4;
  for (const Scenarios& scenarios : {kScenarios, HandlerScenarios()})
    if (const auto found = scenarios.find(argv[1]); found != scenarios.end())
      return found->second();
  return 4;
}
