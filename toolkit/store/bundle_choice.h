#pragma once

#include <string>
#include <vector>

#include "toolkit/store/manifest.h"

namespace tarvo::toolkit {

/// What is known of a module whose symbols are wanted; texts are empty where it is not known.
struct WantedModule {
  std::string name;      ///< as the report lists it
  std::string path;      ///< on the machine of the crash
  std::string platform;  ///< "linux", "macos", "windows"
  std::string id;  ///< build id, UUID, or a PDB's signature and age, in lower-case hexadecimal
  bool isExecutable = false;
};

/// The entries of a manifest that are for `module`, the best first:
///
/// 1. of its id, which says all;
/// 2. where the report states none: of its platform and file name; Windows' names in any case of
///    the letters, and those of PDBs alone without what follows the last dot;
/// 3. of an executable that the report has no name for: the only one of its platform.
///
/// An entry of another id than a known one never serves.
[[nodiscard]] std::vector<const ManifestEntry*> EntriesFor(const WantedModule& module,
                                                           const Manifest& manifest);

}  // namespace tarvo::toolkit
