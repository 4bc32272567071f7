#pragma once

#include <pthread.h>
#include <sys/types.h>
#include <sys/user.h>

#include <cstddef>

namespace tarvo::crashhandler {

/// The memory that the crashed process and the crash child share: one thread's registers at a time,
/// in the kernel's layouts, and the hand-over for them. The two mutexes have the process-shared
/// attribute and serve as two-state semaphores: each is taken in one process and released in the
/// other.
///
///   crashed process   holds registersReady; forks
///   crash child       takes registersConsumed, fills the page, releases registersReady
///   crashed process   takes registersReady, decodes the page, releases registersConsumed
struct RegisterPage {
  user_regs_struct general;
  user_fpregs_struct floating;
  pthread_mutex_t registersReady;
  pthread_mutex_t registersConsumed;
};
static_assert(sizeof(RegisterPage) == 808);
static_assert(offsetof(RegisterPage, floating) == 216);
static_assert(offsetof(RegisterPage, registersReady) == 728);
static_assert(offsetof(RegisterPage, registersConsumed) == 768);

/// The page, or null.
extern RegisterPage* sharedRegisterPage;

/// Maps the page and makes its mutexes; without it, the capture goes on without registers. Crashed
/// process.
void MapRegisterPage();

/// Makes the crash child and decodes each thread's registers into its record, in step with it. A
/// child that cannot be made, or ends early, leaves the threads that it did not reach with what the
/// page held. Crashed process.
void ReadRegisters();

}  // namespace tarvo::crashhandler
