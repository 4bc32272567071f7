#pragma once

#include "tarvo/data_dictionary.h"
#include "tarvo/framework.h"
#include "tarvo/result.h"

namespace tarvo::crashhandler {

/// Writes a crash log (see tarvo/crash_report.h) as the text of a crash report, in the Windows
/// variant when its OS_Type contains "windows" and in the macOS variant otherwise. What the crash
/// log does not have is an empty section or an empty text. All lines end with "\r\n". Integers of
/// the free sections stand as "0x" and lower-case hexadecimal digits.
///
/// A frame is one line of module, address, function, source file, source line and the address's
/// offset from its module's base, 0 where the base is not known:
///
///     "  libdemo.so: 0x7f0000001136 {Crash(int);demo.cpp;12;0x1136}"
///
/// The file is left open. The error of the first write that fails, unchanged; what was written
/// before stays.
Result<void> WriteCrashLog(const DataDictionary& crashLog, OutputFile& file);

}  // namespace tarvo::crashhandler
