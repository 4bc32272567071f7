#pragma once

namespace tarvo {

// A thread's alternate stack lies below the stack that it stands in for: the capture tells the
// frames of its own handler from the thread's by their addresses, the handler's being lower. So the
// alternate stacks go to a part of the address space of their own, far below where the kernel puts
// threads' stacks (linux-6.1 arch/x86/mm/mmap.c: at the top, or from a third of it upwards), at a
// start that differs from process to process.

/// Prepares the release of alternate stacks at the ends of threads. False when there is no key for
/// it. Before a crash, once.
bool PrepareAlternateStacks();

/// Maps an alternate stack between two guard pages; its lowest byte, or null. The first bytes may
/// be used until it is handed to UseAlternateStack. Before a crash.
void* MapAlternateStack();

/// Releases a stack that no thread uses. Before a crash.
void UnmapAlternateStack(void* stack);

/// Makes `stack` the alternate stack of the calling thread, to be released at the thread's end
/// however that comes; releases it at once when the thread has one already. Before a crash.
void UseAlternateStack(void* stack);

}  // namespace tarvo
