#pragma once

#include <unwind.h>

#include <cstdint>

/// Runs _Unwind_Backtrace on the stack of another thread that stands still: `registers` are its, in
/// DWARF's order with the program counter last (17 words). The first entry that `trace` gets is
/// this function itself, the second the thread's frame with its exact program counter.
///
/// Nothing is copied or switched. The function's call-frame information says that its caller is the
/// frame that `registers` describe, and that it is a signal frame, so that the unwinder does not
/// take the program counter for a return address. Any context.
extern "C" [[gnu::visibility("hidden")]] _Unwind_Reason_Code tarvoUnwindFrom(
    const std::uint64_t* registers, _Unwind_Trace_Fn trace, void* argument);
