#include "crash_guard/default_action.h"

#include <dlfcn.h>

#include <array>

#include "crash_guard/signal_entry.h"

namespace {

using Sigaction = int (*)(int, const struct sigaction*, struct sigaction*);
using Signal = sighandler_t (*)(int, sighandler_t);

std::atomic<Sigaction> g_sigaction{nullptr};
/// The older ways to set a handler. Programs in strict ISO C get __sysv_signal for signal.
constexpr std::array kSignalNames = {"signal", "sigset", "__sysv_signal", "sysv_signal",
                                     "bsd_signal"};
std::array<std::atomic<Signal>, kSignalNames.size()> g_signal{};
std::atomic<unsigned> g_replaced{0};

/// When the library is loaded: looking up a function is nothing for a signal handler.
[[gnu::constructor]] void FindNext() {
  g_sigaction.store(reinterpret_cast<Sigaction>(dlsym(RTLD_NEXT, "sigaction")));
  for (std::size_t i = 0; i < kSignalNames.size(); ++i)
    g_signal[i].store(reinterpret_cast<Signal>(dlsym(RTLD_NEXT, kSignalNames[i])));
}

int NextSigaction(int signal, const struct sigaction* action, struct sigaction* old) {
  if (g_sigaction.load() == nullptr) FindNext();
  return g_sigaction.load()(signal, action, old);
}

bool IsGuarded(int signal) {
  return tarvo::g_guard.active.load() && !tarvo::g_crashOwner.IsTaken() &&
         tarvo::IndexOf(tarvo::kCrashSignals, signal) < tarvo::kCrashSignals.size();
}

int PutGuard(int signal, struct sigaction* old) {
  g_replaced.fetch_add(1);
  const tarvo::SignalAction guarding = tarvo::GuardingAction();
  return NextSigaction(signal, &guarding, old);
}

/// What the C library's function does, and then the guard in the place of SIG_DFL.
sighandler_t SetHandler(std::size_t way, int signal, sighandler_t handler) {
  if (g_signal[way].load() == nullptr) FindNext();
  const bool isGuarded = handler == SIG_DFL && IsGuarded(signal);
  const sighandler_t before = g_signal[way].load()(signal, handler);
  if (isGuarded && before != SIG_ERR) PutGuard(signal, nullptr);
  return before;
}

}  // namespace

extern "C" {

[[gnu::visibility("default")]] int sigaction(int signal, const struct sigaction* action,
                                             struct sigaction* old) noexcept {
  if (action == nullptr || action->sa_handler != SIG_DFL || !IsGuarded(signal))
    return NextSigaction(signal, action, old);
  return PutGuard(signal, old);
}

[[gnu::visibility("default")]] sighandler_t signal(int signal, sighandler_t handler) noexcept {
  return SetHandler(0, signal, handler);
}
[[gnu::visibility("default")]] sighandler_t sigset(int signal, sighandler_t handler) noexcept {
  return SetHandler(1, signal, handler);
}
[[gnu::visibility("default")]] sighandler_t __sysv_signal(int signal,
                                                          sighandler_t handler) noexcept {
  return SetHandler(2, signal, handler);
}
[[gnu::visibility("default")]] sighandler_t sysv_signal(int signal, sighandler_t handler) noexcept {
  return SetHandler(3, signal, handler);
}
// Headers declare it only for standards before POSIX.1-2008 (glibc 2.36 signal/signal.h).
[[gnu::visibility("default")]] sighandler_t bsd_signal(int signal, sighandler_t handler) noexcept;
[[gnu::visibility("default")]] sighandler_t bsd_signal(int signal, sighandler_t handler) noexcept {
  return SetHandler(4, signal, handler);
}

}  // extern "C"

namespace tarvo {

SignalAction GuardingAction() {
  SignalAction action = g_guard.capture;
  action.sa_sigaction = GuardSignal;
  action.sa_flags |= SA_ONSTACK;
  return action;
}

unsigned DefaultsReplaced() { return g_replaced.load(); }

}  // namespace tarvo
