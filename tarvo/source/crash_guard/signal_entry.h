#pragma once

#include <signal.h>

namespace tarvo {

/// The guard's action of a fatal signal: gives the signal to the action that was there before the
/// modules, if there is one, and to the capture when that declines. The first crash gets its facts
/// and its deadline here. Crashed process.
void GuardSignal(int signal, siginfo_t* info, void* context);

/// The guard's action of SIGHUP where that is to end the process: does so, or calls the capture's
/// while a crash is captured. Any thread.
void GuardHangup(int signal, siginfo_t* info, void* context);

}  // namespace tarvo
