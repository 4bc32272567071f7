#pragma once

#include <sys/types.h>

namespace tarvo::crashhandler {

// The second way to a stack: a thread that may not be traced is asked for it by SIGHUP and walks it
// itself, in its handler, where it then waits for the end of the process. All are asked at once,
// within one budget of time: a thread that has answered leaves the processor to the others.
//
// A SIGHUP may come late, twice, or from somebody else, and a thread may end before it answers. So
// the request is a claim: a thread may answer only after it has changed its entry's request from
// Asked to Claimed, and it is given up only after that was changed to TakenBack.

/// Asks the threads of g_threadTable that were not stopped and can answer, and waits for them; the
/// others' entries say why they were not asked. Returns within some seconds; a thread that has not
/// answered by then does not write into its entry any more. Crashed process.
void RequestStacks(pid_t self);

}  // namespace tarvo::crashhandler
