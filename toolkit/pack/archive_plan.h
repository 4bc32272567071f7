#pragma once

#include <string>
#include <vector>

#include "tarvo/result.h"
#include "toolkit/pack/bundle.h"

namespace tarvo::toolkit {

/// How the bundles of an archive and the new ones become one archive.
struct ArchivePlan {
  Manifest manifest;  ///< of the new archive, sorted by bundle
  /// For each of the new bundles, the entry of the archive that it takes the place of; an empty one
  /// where it is added.
  std::vector<ManifestEntry> replaced;
  std::vector<std::string> kept;  ///< names of bundles that stay as they are
};

/// Gives each of `bundles` its name, and says what becomes of `old`, the archive's bundles.
///
/// A bundle takes the place, and the name, of an old one for the same module, platform and
/// processors. Another one gets the first of these names that is free, so that those that were
/// there keep theirs:
///
/// 1. the one that the look-up asks for: "application.app.dsym" for a program
/// ("kernel_app.app.dsym"
///    for kernel_app), else the module's name and ".dsym"; a dSYM of a library keeps its own;
/// 2. of a program, its own name and ".dsym";
/// 3. that in a directory: "linux-x86_64/scene.dsym".
///
/// An error that names both when two of `bundles` are of the same module, platform and processors.
Result<ArchivePlan> PlanArchive(const Manifest& old, std::vector<Bundle>& bundles);

}  // namespace tarvo::toolkit
