#pragma once

#include <string>
#include <vector>

#include "tarvo/result.h"
#include "toolkit/pack/bundle.h"

namespace tarvo::toolkit {

/// A bundle of the archive that stays.
struct KeptBundle {
  std::string bundle;  ///< its name in the new archive
  std::string was;     ///< its name in the old one
};

/// How the bundles of an archive and the new ones become one archive.
struct ArchivePlan {
  Manifest manifest;  ///< of the new archive, sorted by bundle
  /// For each of the new bundles, the entry of the archive that it takes the place of; an empty one
  /// where it is added.
  std::vector<ManifestEntry> replaced;
  std::vector<KeptBundle> kept;
};

/// Gives each of `bundles` its name, and says what becomes of `old`, the archive's bundles.
///
/// A bundle takes the place of an old one for the same module, platform and processors. All names
/// follow from what is in the archive in the end, not from what came first: an old bundle may have
/// another name afterwards. Each has the first of these that is free:
///
/// 1. the one that the look-up asks for: "application.app.dsym" for a program
/// ("kernel_app.app.dsym" for kernel_app), else the module's name and ".dsym"; a dSYM of a library,
/// and one that is named as programs are looked up, keeps its own;
/// 2. of a program, its own name and ".dsym";
/// 3. that in a directory: "linux-x86_64/scene.dsym".
///
/// Of several programs that one comes first whose name `application` is (Windows' "scene.exe" is
/// called "scene" too), which is remembered; then a dSYM that has the name by itself; then the
/// first by module and platform. What has a name of another kind, from another program's hands,
/// keeps it.
///
/// An error that names both when two of `bundles` are of the same module, platform and processors.
Result<ArchivePlan> PlanArchive(const Manifest& old, std::vector<Bundle>& bundles,
                                const std::string& application);

/// The programs that "application.app.dsym" would be the name of; one of them has it.
[[nodiscard]] std::vector<ManifestEntry> ApplicantsIn(const Manifest& manifest);

}  // namespace tarvo::toolkit
