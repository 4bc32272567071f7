#pragma once

#include <signal.h>
#include <ucontext.h>

#include <cstdint>

namespace tarvo {

/// What the kernel put on the stack for a signal handler. Both null when it was not found.
struct SignalFrame {
  /// Null also where the program's handler was installed without SA_SIGINFO: the kernel fills it
  /// for others only (linux-6.1 arch/x86/kernel/signal.c, __setup_rt_frame).
  const siginfo_t* info = nullptr;
  ucontext_t* context = nullptr;
};

/// Notes the address that the handler of SIGSEGV returns to. Before a crash, once a function is
/// installed for it.
void PrepareSignalFrames();

/// The frame of the handler that was called for `signal`.
///
/// `info` and `context` are what the crash handler was called with. They are believed only when
/// they lie in a frame as the kernel makes it (linux-6.1 arch/x86/include/asm/sigframe.h, struct
/// rt_sigframe: the address to return to, the context, the facts): a program's own handler that
/// calls the one that was there before may pass just the number. Then the frame is looked for on
/// the stack that this runs on. Crashed process.
SignalFrame FindSignalFrame(int signal, const siginfo_t* info, void* context);

/// Whether handlers return to `address`: the C library's signal trampoline. Where a stack goes on
/// there, its stack pointer is the address of the context. Any context.
bool IsSignalTrampoline(std::uint64_t address);

/// The address that the frame's handler returns to: the C library's signal trampoline.
std::uint64_t TrampolineOf(const SignalFrame& frame);

}  // namespace tarvo
