#include "toolkit/watch/signal_descriptor.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "tarvo/format.h"

namespace tarvo::toolkit {
namespace {

constexpr SourceFile kSignalDescriptor{"command/watch/signal_descriptor"};

}  // namespace

Result<SignalDescriptor> SignalDescriptor::Make() {
  sigset_t ending{};
  sigemptyset(&ending);
  sigaddset(&ending, SIGINT);
  sigaddset(&ending, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ending, nullptr);
  FileDescriptor signals(signalfd(-1, &ending, SFD_NONBLOCK | SFD_CLOEXEC));
  if (!signals.IsOpen())
    return Error::IllegalState(kSignalDescriptor.Here(),
                               Format("Signals cannot be waited for: @", std::strerror(errno)));
  return SignalDescriptor(std::move(signals));
}

bool SignalDescriptor::Take() {
  signalfd_siginfo signal{};
  return Uninterrupted([&] { return read(signals_.Get(), &signal, sizeof signal); }) > 0;
}

bool IsEndAsked() noexcept {
  sigset_t pending{};
  sigpending(&pending);
  return sigismember(&pending, SIGTERM) == 1 || sigismember(&pending, SIGINT) == 1;
}

}  // namespace tarvo::toolkit
