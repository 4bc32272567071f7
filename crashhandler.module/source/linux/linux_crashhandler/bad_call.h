#pragma once

#include <signal.h>
#include <sys/types.h>
#include <ucontext.h>

namespace tarvo::crashhandler {

// A call through a wild pointer leaves a program counter at which there is no code. The unwinder
// would read the code there, to see whether it is a signal trampoline (libgcc 12
// config/i386/linux-unwind.h, x86_64_fallback_frame_state), fault, and lose the stack. The caller
// is on top of the stack: the call pushed its return address and the callee got no further.

/// Puts an interrupted thread that stands at a wild program counter back to right after the call
/// that led there, as if it had returned; leaves any other alone, also one whose stack has no
/// return address on top. `info` is the signal's record in the crashing thread, null in others.
/// True when it changed `context`. Needs the modules to be listed. Crashed process, signalled
/// thread.
bool MendBadCall(pid_t self, const siginfo_t* info, ucontext_t* context);

}  // namespace tarvo::crashhandler
