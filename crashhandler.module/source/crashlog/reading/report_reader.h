#pragma once

#include "tarvo/data_dictionary.h"
#include "tarvo/result.h"
#include "tarvo/string.h"

namespace tarvo::crashhandler {

/// Reads the text of a crash report, of any of the four origins, into a crash log (see
/// tarvo/crash_report.h); texts in it share the report's buffer. A section that comes again
/// replaces the earlier one as a whole. A report without "ComputerInfo" gets one that marks it as a
/// Linux report.
///
/// Any bytes may come: the outcome is one crash log or one error, which names the line (from 1), in
/// time linear in the size. Any thread; no state between calls.
Result<DataDictionary> ParseReport(String text);

}  // namespace tarvo::crashhandler
