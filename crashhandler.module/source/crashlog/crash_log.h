#pragma once

#include <utility>

#include "tarvo/data_dictionary.h"
#include "tarvo/result.h"
#include "tarvo/string.h"
#include "tarvo/url.h"

namespace tarvo::crashhandler {

/// A crash report that was read: the tree of tarvo/crash_report.h and what is done with it.
class CrashLog {
 public:
  /// Reads the file `report` into a crash log (see report_reader.h). The file's error when it
  /// cannot be read, an out-of-memory error when the tree does not fit, else the first error in the
  /// report; there is no partial crash log.
  static Result<DataDictionary> ParseBugReport(const Url& report);

  /// The two steps of it. The text of a file that does not start like a report is not read whole:
  /// the error is ParseText's.
  static Result<String> ReadBugReport(const Url& report);
  static Result<DataDictionary> ParseText(String text);

  /// As ParseText, but what cannot be read is left out and noted under "Damage". An error where
  /// nothing could be read.
  static Result<DataDictionary> SalvageText(String text);

  /// What ParseBugReport has read.
  explicit CrashLog(DataDictionary data) : data_(std::move(data)) {}

  /// Resolves every frame that can be (see ResolveFrames, and there for errors and threads).
  Result<void> Resolve(const Url& archiveDirectory, const Url& temporaryDirectory);

  [[nodiscard]] const DataDictionary& Data() const noexcept { return data_; }
  [[nodiscard]] DataDictionary& Data() noexcept { return data_; }

  /// The symbol bundle of one module, once (see SymbolCache). The bundle is the same for every
  /// `architecture`.
  static Result<Url> GetSymbolFile(const String& moduleName, const String& build,
                                   const String& architecture, const Url& archiveDirectory,
                                   const Url& temporaryDirectory);

 private:
  DataDictionary data_;
};

}  // namespace tarvo::crashhandler
