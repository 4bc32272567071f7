#pragma once

#include "tarvo/string.h"

/// The keys of a crash log, the tree that a crash report is read into:
///
///     ApplicationInfo, ComputerInfo, Exception   dictionaries of texts, one entry a line
///     Threads            array of { ThreadNumber, Registers, Properties, Callstack }
///       Callstack        array of { ModuleName, FunctionName, Address }, innermost frame first;
///                        resolution adds SourceFileName and SourceLine
///       Registers        dictionary, name to value as written ("0x…")
///       Properties       dictionary of texts, the thread's variables; ThreadName is one of them
///     LoadedModules      array of { ModuleName, BaseAddress, BaseSize, Build, …, IsExecutable }
///     Documents          array of { DocumentName, DocumentPath }
///     CriticalLog        array of texts
///
/// A key is there only when the report carried it. Addresses, sizes and thread numbers are unsigned
/// 64-bit numbers, IsExecutable is a truth value, everything else is text as written.
namespace tarvo::crashhandler::property {

inline constexpr String kApplicationInfo = "ApplicationInfo"_text;
inline constexpr String kComputerInfo = "ComputerInfo"_text;
inline constexpr String kOsType = "OS_Type"_text;
inline constexpr String kException = "Exception"_text;

inline constexpr String kThreads = "Threads"_text;
inline constexpr String kThreadNumber = "ThreadNumber"_text;
inline constexpr String kCallstack = "Callstack"_text;
inline constexpr String kRegisters = "Registers"_text;
inline constexpr String kProperties = "Properties"_text;
inline constexpr String kThreadName = "ThreadName"_text;

inline constexpr String kModuleName = "ModuleName"_text;
inline constexpr String kFunctionName = "FunctionName"_text;
inline constexpr String kAddress = "Address"_text;
inline constexpr String kSourceFileName = "SourceFileName"_text;
inline constexpr String kSourceLine = "SourceLine"_text;

inline constexpr String kLoadedModules = "LoadedModules"_text;
inline constexpr String kBaseAddress = "BaseAddress"_text;
inline constexpr String kBaseSize = "BaseSize"_text;
inline constexpr String kIsExecutable = "IsExecutable"_text;
inline constexpr String kBuild = "Build"_text;

inline constexpr String kDocuments = "Documents"_text;
inline constexpr String kDocumentName = "DocumentName"_text;
inline constexpr String kDocumentPath = "DocumentPath"_text;
inline constexpr String kCriticalLog = "CriticalLog"_text;

}  // namespace tarvo::crashhandler::property
