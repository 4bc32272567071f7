#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <atomic>

#include "tarvo/crashhandler.h"

namespace tarvo::crashhandler {

// The hand-over between the crashing thread and the thread that it asks for its stack.
//
// Two mutexes serve as two-state semaphores, taken in one thread and released in the other, which
// the default kind allows (glibc 2.36 nptl/pthread_mutex_unlock.c checks no owner for it):
//
//   crashing thread   take threadSlotFree, fill a record, release threadSlotReady, send SIGHUP
//   signalled thread  take threadSlotReady, fill the record's frames, release threadSlotFree
//   crashing thread   take threadSlotFree again: the frames are complete
//
// A SIGHUP may come late, twice, or from somebody else, and a thread may end before it answers. So
// the request is a claim: the signalled thread may answer only after it has changed
// `requestedThread` from its own id to kClaimed, and the crashing thread may stop waiting only
// after it has changed it back to 0.

extern pthread_mutex_t threadSlotFree;
extern pthread_mutex_t threadSlotReady;

/// The record to be filled next by the stack handler or the crash child; null when its array could
/// not grow.
extern ThreadRecord* currentThreadRecord;

inline constexpr pid_t kClaimed = -1;
/// Whose stack is wanted: a thread id, kClaimed, or 0.
extern std::atomic<pid_t> requestedThread;

/// Appends a record for each thread, with its name and id, and has each that can answer record its
/// stack, one after the other. When it returns, no thread writes into a record any more. Crashed
/// process.
void RecordStacks(const CaptureArray<pid_t>& threads);

}  // namespace tarvo::crashhandler
