#pragma once

#include <signal.h>

#include <array>
#include <cstddef>
#include <span>

namespace tarvo {

struct NamedSignal {
  int number;
  const char* name;
};

/// The signals of a crash: those of the capture, in the order in which they are installed and
/// restored, and SIGABRT, which the crash guard adds.
inline constexpr std::array kCrashSignals = {
    NamedSignal{SIGSEGV, "SIGSEGV"}, NamedSignal{SIGILL, "SIGILL"},   NamedSignal{SIGBUS, "SIGBUS"},
    NamedSignal{SIGSYS, "SIGSYS"},   NamedSignal{SIGTRAP, "SIGTRAP"}, NamedSignal{SIGFPE, "SIGFPE"},
    NamedSignal{SIGABRT, "SIGABRT"}};
inline constexpr std::span kFatalSignals = std::span(kCrashSignals).first<6>();

/// The place of `signal` among `signals`; their number when it is none of them. Any context.
std::size_t IndexOf(std::span<const NamedSignal> signals, int signal);

/// The name of `signal`; "unknown signal" when it is none of them. Any context.
const char* NameOf(std::span<const NamedSignal> signals, int signal);

}  // namespace tarvo
