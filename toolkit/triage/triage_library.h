#pragma once

#include <chrono>
#include <string>

#include "tarvo/data_dictionary.h"
#include "tarvo/result.h"
#include "toolkit/triage/model/added_logs.h"
#include "toolkit/triage/model/triage_options.h"
#include "toolkit/triage/model/triage_result.h"

namespace tarvo::toolkit {

/// What groups crashes, as functions of a library of its own, which is loaded when `tarvo triage`
/// runs: no other subcommand pays for the database's library. Nothing but this table reaches the
/// functions: who calls them directly is refused by the linker.
struct TriageLibrary {
  /// triage.h
  Result<TriageResult> (*run)(const TriageOptions& options);
  Result<AddedLogs> (*add)(const TriageOptions& options);
  /// result/triage_table.h
  std::string (*table)(const TriageResult& result, const TableOptions& options);
  /// result/triage_document.h
  DataDictionary (*document)(const TriageResult& result);
  /// result/triage_page.h
  std::string (*page)(const TriageResult& result, const std::string& document,
                      std::chrono::sys_seconds made);

  /// The library, loaded at the first call and kept, as errors hold texts of it; it stands in the
  /// folder "tarvo" beside the host library. An illegal-state error with the loader's reason when
  /// it cannot be loaded.
  static Result<const TriageLibrary*> Load();
};

inline constexpr const char* kTriageLibraryFile = "tarvo_triage.so";
/// Its one exported object, a TriageLibrary.
inline constexpr const char* kTriageLibrarySymbol = "tarvoTriageLibrary";

}  // namespace tarvo::toolkit
