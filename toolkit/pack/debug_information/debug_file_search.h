#pragma once

#include <map>
#include <string>
#include <vector>

#include "toolkit/pack/bundle.h"

namespace tarvo::toolkit {

/// Finds files by name or build id in the places of `DebugPlaces`, and remembers where it looked,
/// for messages.
class DebugFileSearch {
 public:
  explicit DebugFileSearch(const DebugPlaces& places) : places_(places) {}

  /// The files that are there, in this order, each once:
  ///
  /// 1. `paths`, which are tried as they are;
  /// 2. files of the name `name` among those that the user named;
  /// 3. DIR/.build-id/xx/yyyy`suffix` for the id "xxyyyy", then DIR/`name`, and any file of that
  /// name
  ///    below DIR, for each of the directories.
  ///
  /// An empty name or id is not looked for.
  [[nodiscard]] std::vector<std::string> Find(const std::vector<std::string>& paths,
                                              const std::string& name, const std::string& id,
                                              const std::string& suffix = ".debug");

  /// "; looked for in A, B and 3 other places". Empty where nothing was looked for.
  [[nodiscard]] std::string Tried() const;

 private:
  void Try(const std::string& path, std::vector<std::string>& found);
  /// Paths below `directory` by file name; listed once for each directory of the process.
  static const std::multimap<std::string, std::string>& FilesBelow(const std::string& directory);

  const DebugPlaces& places_;
  std::vector<std::string> tried_;
};

}  // namespace tarvo::toolkit
