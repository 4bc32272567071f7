#pragma once

#include "tarvo/result.h"

namespace tarvo {

/// Has every thread that is started from now on run with an alternate stack, or without. The host
/// library defines the C library's functions that start threads; the loader binds calls to the
/// first definition in the order of loading, so this reaches every caller when the host library
/// stands in front of the C library there. An illegal-state error when it does not. Before a crash.
Result<void> GuardThreadStarts();
void StopGuardingThreadStarts();

}  // namespace tarvo
