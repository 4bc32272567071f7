#pragma once

#include <cstddef>

#include "tarvo/crash_report.h"
#include "tarvo/string.h"

/// The keys of a crash log (see tarvo/crash_report.h) as the dictionaries take them: without a
/// copy.
namespace tarvo::crashhandler::property {

inline constexpr String kApplicationInfo =
    String::Literal(crash_report::property::kApplicationInfo);
inline constexpr String kComputerInfo = String::Literal(crash_report::property::kComputerInfo);
inline constexpr String kOsType = String::Literal(crash_report::property::kOsType);
inline constexpr String kException = String::Literal(crash_report::property::kException);

inline constexpr String kThreads = String::Literal(crash_report::property::kThreads);
inline constexpr String kThreadNumber = String::Literal(crash_report::property::kThreadNumber);
inline constexpr String kCallstack = String::Literal(crash_report::property::kCallstack);
inline constexpr String kRegisters = String::Literal(crash_report::property::kRegisters);
inline constexpr String kProperties = String::Literal(crash_report::property::kProperties);
inline constexpr String kThreadName = String::Literal(crash_report::property::kThreadName);

inline constexpr String kModuleName = String::Literal(crash_report::property::kModuleName);
inline constexpr String kFunctionName = String::Literal(crash_report::property::kFunctionName);
inline constexpr String kAddress = String::Literal(crash_report::property::kAddress);
inline constexpr String kSourceFileName = String::Literal(crash_report::property::kSourceFileName);
inline constexpr String kSourceLine = String::Literal(crash_report::property::kSourceLine);
inline constexpr String kSourceFileChecksum =
    String::Literal(crash_report::property::kSourceFileChecksum);
inline constexpr String kInlinedInto = String::Literal(crash_report::property::kInlinedInto);
inline constexpr String kSymbolOffset = String::Literal(crash_report::property::kSymbolOffset);

/// How many a frame may get by being resolved, with the mark and the text that a user of the tree
/// adds to it.
inline constexpr std::size_t kMostAdded = 7;

inline constexpr String kLoadedModules = String::Literal(crash_report::property::kLoadedModules);
inline constexpr String kBaseAddress = String::Literal(crash_report::property::kBaseAddress);
inline constexpr String kBaseSize = String::Literal(crash_report::property::kBaseSize);
inline constexpr String kIsExecutable = String::Literal(crash_report::property::kIsExecutable);
inline constexpr String kBuild = String::Literal(crash_report::property::kBuild);

inline constexpr String kDocuments = String::Literal(crash_report::property::kDocuments);
inline constexpr String kDocumentName = String::Literal(crash_report::property::kDocumentName);
inline constexpr String kDocumentPath = String::Literal(crash_report::property::kDocumentPath);
inline constexpr String kCriticalLog = String::Literal(crash_report::property::kCriticalLog);

inline constexpr String kDamage = String::Literal(crash_report::property::kDamage);
inline constexpr String kDamageLine = String::Literal(crash_report::property::kDamageLine);
inline constexpr String kDamageCut = String::Literal(crash_report::property::kDamageCut);
inline constexpr String kDamageExpected = String::Literal(crash_report::property::kDamageExpected);

}  // namespace tarvo::crashhandler::property
