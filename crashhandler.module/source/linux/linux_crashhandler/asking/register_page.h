#pragma once

#include <pthread.h>

#include <cstddef>

#include "linux/linux_crashhandler/facts/registers.h"

namespace tarvo::crashhandler {

/// The memory that the crashed process and the crash child share: one thread's registers at a time,
/// and the hand-over for them. The two mutexes have the process-shared attribute and serve as
/// two-state semaphores: each is taken in one process and released in the other.
///
///   crashed process   holds registersReady; forks
///   crash child       takes registersConsumed, fills the page, releases registersReady
///   crashed process   takes registersReady, copies the page, releases registersConsumed
struct RegisterPage {
  ThreadRegisters registers;
  pthread_mutex_t registersReady;
  pthread_mutex_t registersConsumed;
};
static_assert(sizeof(RegisterPage) == 808);
static_assert(offsetof(RegisterPage, registersReady) == 728);
static_assert(offsetof(RegisterPage, registersConsumed) == 768);

/// The page, or null.
extern RegisterPage* sharedRegisterPage;

/// Maps the page. Before a crash, and again for a process that was forked since: a page that is
/// shared with a parent would be no page of its own. Crashed process.
void MapRegisterPage();

/// The second way to registers: makes the crash child, which stops each thread of
/// g_threadTable that the tracer did not get, and copies what it finds. Returns within some
/// seconds; threads that were not reached keep no registers. Crashed process.
void ReadRegisters();

}  // namespace tarvo::crashhandler
