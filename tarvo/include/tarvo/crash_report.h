#pragma once

#include <algorithm>
#include <array>
#include <string_view>

/// A crash report: what a crashed process writes about itself, and what becomes of it. The capture
/// writes reports, the reader and the toolkit read them, on this machine or another; all of them
/// take the format's words from here. The words are plain texts in constant memory, each followed
/// by a zero byte that is not of it, so that what runs in a crashed process may use them: nothing
/// is allocated or initialised at run time.
///
/// A report is text. Indentation is for people; braces make the structure. Reports of four origins
/// have one form and differ in their first word and in what they know:
///
///     TARVO_Crash_Report              kTarvoMagic: this report is of this project's own capture
///     {
///         Call_Stacks
///         {
///             Call_Stack_Thread_4711  the kernel's id of the thread
///             {
///                 libscene.so(update+0x1c) [0x7f2a10011c]:<tab>(nil) (SP: 0x7f2a10011c, PC: (nil))
///                 Registers
///                 {
///                     rax: 0x0000… rbx: 0x0000… rcx: 0x0000… rdx: 0x0000…
///                     st5: 0x0000… st6: 0x0000… st7: 0x0000…             }
///                 Variables
///                 {
///                     ThreadName = render
///                     Document = city.scene
///                     Fault_rip = 0x00007f2a1000011a
///
///                 }
///             }
///         }
///         Loaded_Modules
///         {
///             ModuleName = libscene.so
///             {
///                 Executable = /opt/app/libscene.so
///                 BaseAddress = 0x7f2a100000
///                 BaseSize = 40960
///                 Build = 2209-city
///             }
///         }
///         Exception
///         {
///             ExceptionNumber = 0x0000000B
///             ExceptionText = "SIGSEGV"
///             Address = (nil)
///             Thread = 0x7f2a20c640
///         }
///     }
///
/// Where its parts come from:
///
/// Frames, innermost first: the capture's walk of the thread's stack. The crashed thread's begin
/// with the crash handler's own and the signal trampoline; every other thread's first one stands
/// twice. This capture gives a frame's module, function, offset and address as one text, to the
/// letter what the C library's `backtrace_symbols` prints, without the directories; the function
/// part is "(nil)", the address stands once more as the stack pointer, and there is no program
/// counter. Code outside of all modules is "[0x7f2a10011c]". Other origins have
/// "libscene.so:<tab>update + 0x1c (SP: 0x7ffc60, PC: 0x7f2a10011c)".
///
/// Registers: read by tracing, four a line; zeros where they could not be read. A count of 4k + 3
/// leaves the closing brace on the last line. Two are named rip: the program counter, and behind
/// "fop" the floating-point unit's, which is `kFloatingPointCounter` once a report is normalized.
/// Of two equal names in one block readers keep the first.
///
/// Variables: ThreadName by the capture, what the program has set for the thread
/// (tarvo/host/thread_variables.h), and the facts of `variable` by capture and crash guard. An
/// empty line stands behind them if there are any beyond the name.
///
/// Modules, the program first: the loader's list, and as Build the program's own word for it, where
/// a module is of the program's or the modules' directory. The program itself is "unknown".
///
/// Exception: the signal, its address and the thread as pthread_self gives it.
///
/// Critical_Log, behind the exception and only where the program has attached something
/// (tarvo/host/attachments.h): for each attachment a line "| [NAME]" and its lines, each behind
/// `kAttachedLine`.
///
/// Reports of other origins may have the sections ApplicationInfo, ComputerInfo, Opened Scenes and
/// a Critical_Log of plain lines too. A reader takes the sections in any order, a missing "}" at
/// the end, and keys that it does not know.
///
/// A report is read into a crash log, a tree (tarvo/data_dictionary.h) that is written as JSON once
/// its frames are resolved:
///
///     ApplicationInfo, ComputerInfo, Exception   dictionaries of texts, one entry a line
///     Threads            array of { ThreadNumber, Registers, Properties, Callstack }
///       Callstack        array of { ModuleName, FunctionName, Address }, innermost frame first;
///                        resolution adds SourceFileName, SourceLine, where the compiler has noted
///                        it SourceFileChecksum and, where the function is inlined, InlinedInto: an
///                        array from the inside out of { FunctionName, SourceFileName, SourceLine,
///                        SourceFileChecksum }, last the one that has code of its own
///                        `tarvo resolve` adds AddressText, the address as hexadecimal text
///       Registers        dictionary, name to value as written ("0x…")
///       Properties       dictionary of texts, the thread's variables; ThreadName is one of them
///     LoadedModules      array of { ModuleName, BaseAddress, BaseSize, Build, …, IsExecutable }
///     Documents          array of { DocumentName, DocumentPath }, the opened scenes
///     CriticalLog        array of texts
///
///     Outcome            { Report, Size, Time, Hash, Archives, Missed, Resolved, Lacks }: which
///                        file this was made of, and which archives were there for it, as an array
///                        of { Build, File, Identity } and { Build, Missing }; where else symbols
///                        were looked for and not found, as an array of { File, Identity } and {
///                        File, Missing }; how many frames were resolved and what the others want,
///                        as an array of { Reason, Platform, Build, Module, Bundle, Frames, Owner,
///                        Error }. First, and only in what `tarvo resolve` makes. A report that
///                        could not be resolved has only this, with an Error
///     Crashed            true on the thread that crashed and on its frame to look at: the one that
///                        was interrupted or, of an abort, the one that asked for it. Only in what
///                        `tarvo resolve` makes; where no thread is marked the first one counts
///     Damage             array of { Line, Expected, Cut }, what could not be read; only in
///                        documents of a reading that goes on behind what it cannot read. Without a
///                        line: the report came packed, and that is damaged. Cut is true on the
///                        last one where the report ends there: it was cut off
///
/// A key is there only when the report carried it. Addresses, sizes and numbers of threads and
/// lines are numbers of 64 bits, IsExecutable is a truth value, everything else is text as written.
namespace tarvo::crash_report {

// --- Files ---------------------------------------------------------------------------------------

/// How the names of reports end, in any case of the letters.
inline constexpr std::string_view kNameEnd = "_bugreport.txt";

/// Whether `name` is that of a report. ASCII letters only, whatever the locale.
[[nodiscard]] constexpr bool IsReportName(std::string_view name) noexcept {
  constexpr auto kLower = [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  };
  return name.size() >= kNameEnd.size() &&
         std::ranges::equal(name.substr(name.size() - kNameEnd.size()), kNameEnd, {}, kLower);
}

/// What takes the place of "txt" in the names of the two files that resolving a report leaves
/// beside it: the resolved crash log as JSON, and as a report's text.
inline constexpr std::string_view kDocumentSuffix = "resolved.json";
inline constexpr std::string_view kCopySuffix = "source";

// --- The first word ------------------------------------------------------------------------------

/// Of this project's own capture, ...
inline constexpr std::string_view kTarvoMagic = "TARVO_Crash_Report";
/// ... and of the crash handlers of the three systems.
inline constexpr std::string_view kWindowsMagic = "PALLADO_Crash_Report_WINDOWS";
inline constexpr std::string_view kMacosMagic = "PALLADO_Crash_Report_MACOS";
inline constexpr std::string_view kLinuxMagic = "PALLADO_Crash_Report_LINUX";
inline constexpr std::array kMagics = {kWindowsMagic, kMacosMagic, kLinuxMagic, kTarvoMagic};

/// May stand in front of it.
inline constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// --- Blocks --------------------------------------------------------------------------------------

/// The words that open a block.
namespace section {
inline constexpr std::string_view kCallStacks = "Call_Stacks";
inline constexpr std::string_view kException = "Exception";
inline constexpr std::string_view kComputerInfo = "ComputerInfo";
inline constexpr std::string_view kApplicationInfo = "ApplicationInfo";
inline constexpr std::string_view kOpened = "Opened";  ///< of two words, this and ...
inline constexpr std::string_view kScenes = "Scenes";  ///< ... this
inline constexpr std::string_view kLoadedModules = "Loaded_Modules";
inline constexpr std::string_view kCriticalLog = "Critical_Log";

// Inside of Call_Stacks.
inline constexpr std::string_view kThreadPrefix = "Call_Stack_Thread_";  ///< the id follows
inline constexpr std::string_view kRegisters = "Registers";
inline constexpr std::string_view kVariables = "Variables";

/// The Windows writer's note about how it found the modules, a line among their entries.
inline constexpr std::string_view kModuleSnapshotNote = "CreateToolhelp32Snapshot";
}  // namespace section

/// The keys of lines "KEY = VALUE". The crash log keeps them.
namespace key {
inline constexpr std::string_view kModuleName = "ModuleName";  ///< opens a module's entry
inline constexpr std::string_view kExecutable = "Executable";  ///< a module's path
inline constexpr std::string_view kBaseAddress = "BaseAddress";
inline constexpr std::string_view kBaseSize = "BaseSize";  ///< in bytes, decimal
inline constexpr std::string_view kBuild = "Build";

inline constexpr std::string_view kExceptionNumber = "ExceptionNumber";  ///< eight digits
inline constexpr std::string_view kExceptionText = "ExceptionText";      ///< in quotes
inline constexpr std::string_view kExceptionAddress = "Address";
inline constexpr std::string_view kExceptionThread = "Thread";

inline constexpr std::string_view kOsType = "OS_Type";                      ///< of ComputerInfo
inline constexpr std::string_view kVersion = "PALLADO_Version";             ///< of ApplicationInfo
inline constexpr std::string_view kArchitecture = "TargetCpuArchitecture";  ///< of ApplicationInfo
}  // namespace key

/// What the value of OS_Type holds in reports of Windows.
inline constexpr std::string_view kWindowsSystem = "windows";

/// The name of a module that has none, and of a thread.
inline constexpr std::string_view kUnknown = "unknown";
/// The null pointer, as the C library prints it with "%p" (glibc,
/// stdio-common/vfprintf-process-arg.c).
inline constexpr std::string_view kNull = "(nil)";
/// In front of the digits of an address and of a register's value.
inline constexpr std::string_view kHexadecimal = "0x";

/// What the second register of the name rip is called once an own report is normalized.
inline constexpr std::string_view kProgramCounterRegister = "rip";
inline constexpr std::string_view kFloatingPointCounter = "fpu_rip";

/// In front of a name or value of an own report that no line of a report could carry as it is (a
/// program named ".prog", a value with blanks in front), once the report is normalized: behind it
/// ASCII letters and digits stand for themselves, every other byte as "_" and two lower-case
/// hexadecimal digits, so ".prog" is "Spelled__2eprog". A text that begins so itself is spelled
/// too.
inline constexpr std::string_view kSpelled = "Spelled_";

/// In front of each line of Critical_Log in an own report, so that none is taken for the block's
/// end. A reader takes it off; the blank at its end may be missing where nothing follows.
inline constexpr std::string_view kAttachedLine = "| ";

/// The register whose value is the Thread of the exception: on x86-64 pthread_self() is fs_base
/// (glibc 2.36, sysdeps/x86_64/nptl/tls.h, THREAD_SELF).
inline constexpr std::string_view kThreadRegister = "fs_base";

/// What stands in the line of a frame in front of its parts: "MODULE:<tab>FUNCTION (SP: …, PC: …)".
namespace frame {
inline constexpr std::string_view kFunction = ":\t";
inline constexpr std::string_view kStackPointer = " (SP: ";
inline constexpr std::string_view kProgramCounter = " PC: ";
// The same where an address is known.
inline constexpr std::string_view kStackPointerDigits = " (SP: 0x";
inline constexpr std::string_view kProgramCounterDigits = " PC: 0x";
// And where it is that of a null pointer's frame.
inline constexpr std::string_view kNullStackPointer = " (SP: (nil),";
}  // namespace frame

// --- Variables -----------------------------------------------------------------------------------

/// The variables of a thread that the capture and the crash guard add.
namespace variable {
inline constexpr std::string_view kThreadName = "ThreadName";

// Of the thread that crashed.
inline constexpr std::string_view kCrashTime = "CrashTime";      ///< "2026-11-21T13:09:40Z"
inline constexpr std::string_view kProgramFile = "ProgramFile";  ///< the program's path
/// The GNU build id of a module, in lower-case hexadecimal. Behind the prefix stands the module's
/// BaseAddress as the report has it.
inline constexpr std::string_view kBuildIdPrefix = "BuildId_";

// Of any thread, where something is missing or uncertain.
inline constexpr std::string_view kFramesMissing = "FramesMissing";        ///< why
inline constexpr std::string_view kRegistersMissing = "RegistersMissing";  ///< why
/// Places of frames that were found without call-frame information, the first frame being 0.
inline constexpr std::string_view kGuessedFrames = "GuessedFrames";  ///< "3 4 9"

// The signal, of the thread that crashed.
inline constexpr std::string_view kFaultSignal = "FaultSignal";    ///< "SIGSEGV"
inline constexpr std::string_view kFaultCode = "FaultCode";        ///< "SEGV_MAPERR, address …"
inline constexpr std::string_view kFaultAddress = "FaultAddress";  ///< of a fault; or, ...
inline constexpr std::string_view kFaultSender = "FaultSender";  ///< ... sent, "process 1, user 2"

/// The general registers at the fault: "Fault_rip", "Fault_rsp" and so on.
inline constexpr std::string_view kFaultRegisterPrefix = "Fault_";
inline constexpr std::string_view kFaultProgramCounter = "Fault_rip";

// The exception that nobody caught.
inline constexpr std::string_view kExceptionType = "ExceptionType";
inline constexpr std::string_view kExceptionMessage = "ExceptionMessage";
}  // namespace variable

// --- The crash log -------------------------------------------------------------------------------

/// The keys of the tree that a report is read into.
namespace property {
inline constexpr std::string_view kApplicationInfo = section::kApplicationInfo;
inline constexpr std::string_view kComputerInfo = section::kComputerInfo;
inline constexpr std::string_view kOsType = key::kOsType;
inline constexpr std::string_view kException = section::kException;

inline constexpr std::string_view kThreads = "Threads";
inline constexpr std::string_view kThreadNumber = "ThreadNumber";
inline constexpr std::string_view kCallstack = "Callstack";
inline constexpr std::string_view kRegisters = section::kRegisters;
inline constexpr std::string_view kProperties = "Properties";
inline constexpr std::string_view kThreadName = variable::kThreadName;

inline constexpr std::string_view kModuleName = key::kModuleName;  ///< of frames too
inline constexpr std::string_view kFunctionName = "FunctionName";
inline constexpr std::string_view kAddress = "Address";
inline constexpr std::string_view kAddressText = "AddressText";  ///< the same as text, "0x7f2a"
inline constexpr std::string_view kSourceFileName = "SourceFileName";
inline constexpr std::string_view kSourceLine = "SourceLine";
/// Of the source file when it was compiled, "md5:", "sha1:" or "sha256:" and hexadecimal digits.
inline constexpr std::string_view kSourceFileChecksum = "SourceFileChecksum";
inline constexpr std::string_view kInlinedInto = "InlinedInto";
/// Only a symbol table knew the function: how many bytes the address lies behind its symbol.
inline constexpr std::string_view kSymbolOffset = "SymbolOffset";
inline constexpr std::string_view kCrashed = "Crashed";  ///< of a thread and of a frame

inline constexpr std::string_view kLoadedModules = "LoadedModules";
inline constexpr std::string_view kBaseAddress = key::kBaseAddress;
inline constexpr std::string_view kBaseSize = key::kBaseSize;
inline constexpr std::string_view kIsExecutable = "IsExecutable";
inline constexpr std::string_view kBuild = key::kBuild;

inline constexpr std::string_view kDocuments = "Documents";
inline constexpr std::string_view kDocumentName = "DocumentName";
inline constexpr std::string_view kDocumentPath = "DocumentPath";
inline constexpr std::string_view kCriticalLog = "CriticalLog";

inline constexpr std::string_view kDamage = "Damage";
inline constexpr std::string_view kDamageLine = "Line";          ///< from 1, or none
inline constexpr std::string_view kDamageExpected = "Expected";  ///< and what was found
inline constexpr std::string_view kDamageCut = "Cut";            ///< the report ends here

inline constexpr std::string_view kOutcome = "Outcome";
inline constexpr std::string_view kOutcomeReport = "Report";      ///< its path, as it was named
inline constexpr std::string_view kOutcomeSize = "Size";          ///< in bytes
inline constexpr std::string_view kOutcomeTime = "Time";          ///< "2026-11-21T13:09:40Z"
inline constexpr std::string_view kOutcomeHash = "Hash";          ///< SHA-256, hexadecimal
inline constexpr std::string_view kOutcomeArchives = "Archives";  ///< each with a Build and ...
inline constexpr std::string_view kOutcomeFile = "File";          ///< ... its path and ...
inline constexpr std::string_view kOutcomeIdentity = "Identity";  ///< ... what tells its content,
inline constexpr std::string_view kOutcomeMissing = "Missing";    ///< or that there is none
/// Where symbols that no archive has were looked for, each with a File and Missing or, where
/// another one stood there, its Identity.
inline constexpr std::string_view kOutcomeMissed = "Missed";
inline constexpr std::string_view kOutcomeResolved = "Resolved";  ///< how many frames were
inline constexpr std::string_view kOutcomeLacks = "Lacks";     ///< what the others want, each with
inline constexpr std::string_view kLackReason = "Reason";      ///< a word of `tarvo resolve --help`
inline constexpr std::string_view kLackPlatform = "Platform";  ///< "linux", "macos", "windows"
inline constexpr std::string_view kLackModule = "Module";
inline constexpr std::string_view kLackBundle = "Bundle";  ///< that would help
inline constexpr std::string_view kLackFrames = "Frames";  ///< how many
inline constexpr std::string_view kLackOwner = "Owner";    ///< "System" or "CrashHandler", or none
inline constexpr std::string_view kLackMayPass = "MayPass";  ///< another try may go better
inline constexpr std::string_view kOutcomeError = "Error";   ///< why it was not resolved
}  // namespace property

}  // namespace tarvo::crash_report
