#pragma once

#include <string>
#include <vector>

#include "tarvo/data_dictionary.h"
#include "toolkit/store/manifest.h"

namespace tarvo::toolkit {

/// An archive of symbols that may serve a report.
struct OfferedArchive {
  std::string file;     ///< its path; by its name that of a build, or of any where it says none
  Manifest bundles;     ///< those that can be read
  bool isTold = false;  ///< it has a manifest; else bundles are found by their names alone
};

/// What archives have for one module of a report.
struct ServedModule {
  std::string module;
  std::string build;        ///< that the report states for it; may be empty
  std::string bundle{};     ///< that serves it; empty: none
  std::string archive{};    ///< that holds the bundle
  std::string reason{};     ///< why none serves, for people
  bool isExpected = false;  ///< one of the archives is that of the module's own build
};

/// The modules that frames of `crashLog` are in, in the order of its list, each with the first
/// bundle that a resolve would take for it: of the archive of its build, else of that of the
/// application's, and of no other.
[[nodiscard]] std::vector<ServedModule> ModulesServed(const DataDictionary& crashLog,
                                                      const std::vector<OfferedArchive>& archives);

}  // namespace tarvo::toolkit
