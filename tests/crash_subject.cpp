// A program for the tests: crashes, or does something around a crash, in the way that its first
// argument names. "--no-host" in front runs the same without the framework, as a control.

#include <dlfcn.h>
#include <errno.h>
#include <linux/seccomp.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "seccomp_filter.h"
#include "tarvo/crashhandler.h"
#include "tarvo/host/attachments.h"
#include "tarvo/host/host.h"
#include "tarvo/host/tarvo.h"

namespace {

std::vector<std::string> g_configuration;
bool g_withHost = true;

std::unique_ptr<tarvo::Host> StartHost() {
  if (!g_withHost) return nullptr;
  auto host = tarvo::Host::Start({.arguments = g_configuration});
  if (!host) {
    std::fprintf(stderr, "%s\n", host.GetError().Text().ToStdString().c_str());
    std::exit(2);
  }
  return *std::move(host);
}

[[gnu::noinline]] void NullWrite() {
  volatile int* volatile nowhere = nullptr;
  *nowhere = 1;
}

/// Starts `work` in a thread of its own that nobody waits for, and returns when it runs.
void StartThread(std::function<void()> work) {
  static std::atomic<int> running{0};
  const int before = running.load();
  std::thread([work = std::move(work)] {
    ++running;
    work();
  }).detach();
  while (running.load() == before) usleep(1000);
}

[[noreturn]] void WaitForever() {
  for (;;) pause();
}

void Print(const char* text) { (void)!write(STDERR_FILENO, text, std::strlen(text)); }

// --- a thread whose frame description leads the unwinder into memory that is not there -----------

extern "C" void SpinWithBadFrame();
asm(R"(
  .text
  .globl SpinWithBadFrame
  .type SpinWithBadFrame, @function
SpinWithBadFrame:
  .cfi_startproc
  .cfi_def_cfa rax, 8
  movq $0x10, %rax
1:
  pause
  jmp 1b
  .cfi_endproc
  .size SpinWithBadFrame, . - SpinWithBadFrame
)");

int UnwinderFault() {
  const auto host = StartHost();
  StartThread(SpinWithBadFrame);
  usleep(20'000);
  NullWrite();
  return 0;
}

// --- callbacks -----------------------------------------------------------------------------------

tarvo::Ref<tarvo::CrashHandler> Service(tarvo::Host& host) {
  return *tarvo::Bind<tarvo::CrashHandler>(host.Services());
}

int CallbackCrashes() {
  const auto host = StartHost();
  Service(*host)->SetCallback([](const tarvo::CrashInfo*) {
    Print("half of it\n");
    NullWrite();
  });
  NullWrite();
  return 0;
}

int SecondaryCallback() {
  const auto host = StartHost();
  Service(*host)->SetSecondaryCallback([](const tarvo::CrashInfo* crash) {
    Print(crash->signal == SIGSEGV && crash->threads.size == 1 ? "after the report\n" : "wrong\n");
  });
  NullWrite();
  return 0;
}

// --- attachments ---------------------------------------------------------------------------------

/// Files of the working directory, and texts; in C and in C++.
int Attachments() {
  if (tarvo_attach_file("gone.log") != 0 || tarvo_attach_file("/") != 0 ||
      tarvo_attach_text("", "refused") != EINVAL)
    return 5;
  tarvo_attach_text("Removed", "text");
  tarvo_attach_text("Settings", "to be replaced");
  const tarvo_options options = {.size = sizeof(options),
                                 .arguments = nullptr,
                                 .modules = nullptr,
                                 .build = "c-7",
                                 .report = "c_bugreport.txt",
                                 .report_fallback = nullptr,
                                 .crash_guard = 0};
  char error[100];
  if (tarvo_start(&options, error, sizeof(error)) != 0) return 6;
  for (const char* file : {"app.log", "long.log"}) (void)tarvo::AttachFile(file);
  (void)tarvo::AttachText("Settings", "a = 1\n}\n\x1b[31m\tred\xc2\x9b\n\n  b\r\n");
  tarvo_remove_attachment("Removed");
  NullWrite();
  return 0;
}

// --- the end -------------------------------------------------------------------------------------

std::mutex g_held;

struct LocksAtExit {
  ~LocksAtExit() {
    std::free(std::malloc(100));
    g_held.lock();
  }
};
LocksAtExit g_locksAtExit;
thread_local LocksAtExit t_locksAtExit;

void HoldLock() {
  StartThread([] {
    g_held.lock();
    WaitForever();
  });
  usleep(20'000);
  // Constructed by its first use in this thread.
  asm volatile("" : : "r"(&t_locksAtExit));
}

int Destructors() {
  const auto host = StartHost();
  HoldLock();
  NullWrite();
  return 0;
}

/// The control: what an ordinary exit does here.
int DestructorsAtExit() {
  HoldLock();
  std::exit(1);
}

int MainReturns() {
  const auto host = StartHost();
  for (int i = 0; i < 20; ++i) StartThread(WaitForever);
  std::atomic<bool> crashing{false};
  std::thread([&] {
    crashing = true;
    NullWrite();
  }).detach();
  while (!crashing) usleep(10);
  usleep(500);
  return 0;
}

// --- threads that cannot answer ------------------------------------------------------------------

int ThreadChurn() {
  const auto host = StartHost();
  for (int i = 0; i < 4; ++i)
    StartThread([] {
      for (;;) std::thread([] {}).join();
    });
  usleep(20'000);
  NullWrite();
  return 0;
}

int LeaderGone() {
  // Kept: the host must outlive this thread.
  (void)StartHost().release();
  std::thread([] {
    usleep(50'000);
    NullWrite();
  }).detach();
  pthread_exit(nullptr);
}

int HangupIgnored() {
  const auto host = StartHost();
  signal(SIGHUP, SIG_IGN);
  StartThread(WaitForever);
  NullWrite();
  return 0;
}

int HangupHandler() {
  signal(SIGHUP, [](int) { Print("previous\n"); });
  auto host = StartHost();
  raise(SIGHUP);
  std::thread([] { raise(SIGHUP); }).join();
  host.reset();
  Print("restored\n");
  raise(SIGHUP);
  return 0;
}

/// A thread that is signalled all the time is stopped by one of those signals, not by the tracer's.
int SignalStorm() {
  const auto host = StartHost();
  signal(SIGUSR1, [](int) {});
  static std::atomic<pthread_t> target{0};
  StartThread([] {
    target = pthread_self();
    WaitForever();
  });
  while (target.load() == 0) usleep(1000);
  StartThread([] {
    for (;;) pthread_kill(target.load(), SIGUSR1);
  });
  usleep(20'000);
  NullWrite();
  return 0;
}

// --- a crash child that cannot be made, or does not live -----------------------------------------

int ForkRefused() {
  const auto host = StartHost();
  if (!InstallSeccompFilter(SYS_clone, SECCOMP_RET_ERRNO | EAGAIN)) return 5;
  NullWrite();
  return 0;
}

int TracerKilled() {
  const auto host = StartHost();
  if (!InstallSeccompFilter(SYS_ptrace, SECCOMP_RET_KILL_PROCESS)) return 5;
  NullWrite();
  return 0;
}

// --- locks that others hold ----------------------------------------------------------------------

int StreamsHeld() {
  const auto host = StartHost();
  StartThread([] {
    flockfile(stdout);
    flockfile(stderr);
    WaitForever();
  });
  usleep(20'000);
  NullWrite();
  return 0;
}

int LoaderHeld() {
  const auto host = StartHost();
  StartThread([] { dlopen("waiting_plugin.so", RTLD_NOW); });
  usleep(50'000);
  NullWrite();
  return 0;
}

// --- surroundings --------------------------------------------------------------------------------

int ForkedChild() {
  const auto host = StartHost();
  StartThread(WaitForever);
  const pid_t child = fork();
  if (child == 0) NullWrite();
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 1 ? 0 : 3;
}

int OtherChild() {
  const auto host = StartHost();
  signal(SIGCHLD, SIG_IGN);
  if (fork() == 0) {
    close(STDOUT_FILENO);
    close(STDERR_FILENO);
    sleep(30);
    _exit(0);
  }
  NullWrite();
  return 0;
}

int Cancelled() {
  const auto host = StartHost();
  std::thread([] {
    pthread_cancel(pthread_self());
    NullWrite();
  }).join();
  return 0;
}

int FileLimit() {
  const auto host = StartHost();
  const rlimit limit{1000, 1000};
  setrlimit(RLIMIT_FSIZE, &limit);
  NullWrite();
  return 0;
}

/// The report goes where the program was started.
int ChangedDirectory() {
  const auto host = StartHost();
  if (chdir("/") != 0) return 5;
  NullWrite();
  return 0;
}

int GeneratedCode() {
  const auto host = StartHost();
  // xor %eax, %eax; mov %eax, (%rax)
  const unsigned char code[] = {0x31, 0xc0, 0x89, 0x00};
  void* page =
      mmap(nullptr, 4096, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  std::memcpy(page, code, sizeof(code));
  std::printf("%p\n", static_cast<void*>(static_cast<char*>(page) + 2));
  std::fflush(stdout);
  reinterpret_cast<void (*)()>(page)();
  return 0;
}

int Traced() {
  const pid_t child = fork();
  if (child == 0) {
    struct sigaction before;
    struct sigaction after;
    sigaction(SIGSEGV, nullptr, &before);
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    const auto host = StartHost();
    sigaction(SIGSEGV, nullptr, &after);
    std::fprintf(stderr, "SetCallback %d, SetSecondaryCallback %d, handler %s\n",
                 Service(*host)->SetCallback(nullptr),
                 Service(*host)->SetSecondaryCallback(nullptr),
                 before.sa_sigaction == after.sa_sigaction ? "not installed" : "installed");
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  return 0;
}

int CrashInMain() {
  const auto host = StartHost();
  NullWrite();
  return 0;
}

const std::map<std::string, int (*)()> kScenarios = {{"null-write", CrashInMain},
                                                     {"unwinder-fault", UnwinderFault},
                                                     {"callback-crashes", CallbackCrashes},
                                                     {"secondary-callback", SecondaryCallback},
                                                     {"attachments", Attachments},
                                                     {"destructors", Destructors},
                                                     {"destructors-at-exit", DestructorsAtExit},
                                                     {"main-returns", MainReturns},
                                                     {"thread-churn", ThreadChurn},
                                                     {"leader-gone", LeaderGone},
                                                     {"hangup-ignored", HangupIgnored},
                                                     {"signal-storm", SignalStorm},
                                                     {"fork-refused", ForkRefused},
                                                     {"tracer-killed", TracerKilled},
                                                     {"hangup-handler", HangupHandler},
                                                     {"streams-held", StreamsHeld},
                                                     {"loader-held", LoaderHeld},
                                                     {"forked-child", ForkedChild},
                                                     {"other-child", OtherChild},
                                                     {"cancelled", Cancelled},
                                                     {"file-limit", FileLimit},
                                                     {"changed-directory", ChangedDirectory},
                                                     {"generated-code", GeneratedCode},
                                                     {"traced", Traced}};

}  // namespace

int main(int argc, char** argv) {
  g_configuration = tarvo::TakeConfigurationArguments(argc, argv);
  if (argc > 1 && std::string(argv[1]) == "--no-host") {
    g_withHost = false;
    --argc;
    ++argv;
  }
  const auto scenario = argc == 2 ? kScenarios.find(argv[1]) : kScenarios.end();
  if (scenario == kScenarios.end()) return 4;
  return scenario->second();
}
