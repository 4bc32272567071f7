#pragma once

#include <cstddef>
#include <cstdio>

#include "tarvo/crashhandler.h"
#include "tarvo/registration.h"
#include "tarvo/source_location.h"

namespace tarvo::crashhandler {

inline constexpr SourceFile kLegacyCrashLogSource{"crashhandler.module/source/legacycrashlog"};

inline constexpr std::size_t kReportPathSize = 1024;
inline constexpr std::size_t kBuildTextSize = 128;

/// Where the report goes and what it says of the build; set at initialisation, read at a crash.
/// All texts are zero-terminated.
extern char reportPath[kReportPathSize];  ///< system path of the report file, or empty
extern FILE* reportStream;                ///< standard error when there is no path, else null
extern char buildText[kBuildTextSize];

/// Notes the application's directories, whose modules carry the build text in the report. When the
/// module is loaded.
void RegisterLegacycrashlog(Registration& registration);

/// Writes the crash report to the file at `reportPath`, or to standard error when there is none or
/// it cannot be written. Nothing is lost of what was flushed should the writer itself crash.
/// Crashed process.
///
/// Layout: tabs for indentation, "\n" for line ends, each brace on a line of its own, but for the
/// brace behind a register list whose count is 4k + 3, which continues the list's last line.
///
///     TARVO_Crash_Report
///     {
///         Call_Stacks
///         {
///             Call_Stack_Thread_4711
///             {
///                 libscene.so(update+0x1c) [0x7f2a…]:<tab>(nil) (SP: 0x7f2a…, PC: (nil))
///                 Registers
///                 {
///                     rax: 0x… rbx: 0x… rcx: 0x… rdx: 0x…
///                     st5: 0x… st6: 0x… st7: 0x…             }
///                 Variables
///                 {
///                     ThreadName = render
///                     Document = city.scene
///
///                 }
///             }
///         }
///         Loaded_Modules
///         {
///             ModuleName = libscene.so
///             {
///                 Executable = /opt/app/libscene.so
///                 BaseAddress = 0x7f2a…
///                 BaseSize = 40960
///                 Build = 2209-city
///             }
///         }
///         Exception
///         {
///             ExceptionNumber = 0x0000000B
///             ExceptionText = "SIGSEGV"
///             Address = (nil)
///             Thread = 0x7f2a…
///         }
///     }
void WriteCrashReport(const CrashInfo* crash);

}  // namespace tarvo::crashhandler
