#pragma once

#include "tarvo/source_location.h"

namespace tarvo::crashhandler {

/// The folder speaks as one: its errors carry this path and the line in the file that made them.
inline constexpr SourceFile kSource{"crashhandler.module/source/crashlog"};

}  // namespace tarvo::crashhandler
