#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "toolkit/document/crash_document.h"
#include "toolkit/triage/grouping/fingerprint.h"
#include "toolkit/triage/model/crash_stack.h"

namespace tarvo::toolkit {

/// Stands for a build or system that a report does not tell.
inline constexpr std::string_view kNotTold = "unknown";

/// Frames of a module that have no names for want of its symbols.
struct MissingSymbols {
  std::string module{};
  std::string build{};  ///< empty: not known
  std::size_t frames = 0;
};

/// What triage keeps of a crash log: a few kilobytes, whatever the log's size.
struct CrashRecord {
  std::string path{};  ///< of the log as it was named; of a line of results that of its report
  /// What tells the report from all others: the hash of its file as resolution noted it, else that
  /// of the log. SHA-256, hexadecimal.
  std::string hash{};
  std::optional<std::chrono::sys_seconds> time{};
  std::string build{};
  std::string system{};
  std::string crashClass{};
  CrashStack stack{};
  std::size_t furtherFrames = 0;  ///< of the thread, behind `stack`
  std::size_t namedFrames = 0;    ///< of the stack's entries; more after symbols have come
  std::vector<MissingSymbols> missing{};
  Fingerprint fingerprint{};
};

/// The record of a document. `contentHash` is that of its text.
[[nodiscard]] CrashRecord MakeCrashRecord(const CrashDocument& document, std::string path,
                                          std::string contentHash);

}  // namespace tarvo::toolkit
