#pragma once

#include "tarvo/error.h"
#include "tarvo/source_location.h"

namespace tarvo {

/// Why the system did not do a step of an extraction, in its words, for the error number `reason`:
/// a file error where the machine is at fault, as with a full disk, so that it may go well another
/// time; else, as with a name that is too long, a plain one.
[[nodiscard]] Error SystemFailure(SourceLocation where, int reason);

}  // namespace tarvo
