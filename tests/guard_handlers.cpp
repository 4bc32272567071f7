// Programs with signal handlers of their own, installed before the host or after it.

#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <exception>
#include <thread>

#include "guard_subject.h"

namespace {

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
  for (const char* report : {"", "%p_bugreport.txt"}) {
    auto host = StartHost(report);
    std::printf("with the host %d are as before", count(before, handlers()));
    host.reset();
    std::printf(", then %d, terminate %s\n", count(before, handlers()),
                std::get_terminate() == terminate ? "too" : "not");
  }
  return 0;
}

}  // namespace

Scenarios HandlerScenarios() {
  return {{"before-default", Recovering<Recover<SetDefault>, true>},
          {"before-raise", Recovering<Recover<SetDefaultAndRaise>, true>},
          {"before-once", Recovering<Return, true, true>},
          {"before-repair", Repairing},
          {"after-call", Recovering<Recover<CallReplaced>, false>},
          {"after-put-back", Recovering<Recover<PutReplacedBack>, false>},
          {"after-default", Recovering<Recover<SetDefault>, false>},
          {"after-raise", Recovering<Recover<SetDefaultAndRaise>, false>},
          {"after-sigset", Recovering<Recover<SetDefaultBySigset>, false>},
          {"restored", Restored}};
}
