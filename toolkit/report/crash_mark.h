#pragma once

#include "tarvo/data_dictionary.h"

namespace tarvo::report {

/// Marks the thread of `crashLog` that crashed, and its frame to look at, with `Crashed`
/// (tarvo/crash_report.h). A thread without frames is marked alone; without threads nothing is.
void MarkCrash(DataDictionary& crashLog);

}  // namespace tarvo::report
