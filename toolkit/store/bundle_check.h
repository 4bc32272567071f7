#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tarvo/framework.h"
#include "tarvo/result.h"
#include "toolkit/store/file_description.h"
#include "toolkit/store/manifest.h"

namespace tarvo::toolkit {

/// A bundle of an archive, looked at.
struct CheckedBundle {
  std::string name;
  std::optional<FileDescription> description;  ///< of its debug file
  std::optional<ManifestEntry> told;           ///< what the manifest says of it
  std::vector<std::string> problems;           ///< empty where it serves
};
struct CheckedArchive {
  std::string file;
  std::vector<CheckedBundle> bundles;
  /// The bundles that can be read, as the archive tells them, or else as their files do.
  Manifest manifest;
  bool isTold = false;  ///< whether it has a manifest
};

/// Unpacks the archive `file` into the new directory `scratch` and looks at each bundle: whether it
/// can be read, has debug information with all parts, and is what the manifest says. An error when
/// it cannot be unpacked.
Result<CheckedArchive> CheckArchive(Framework& framework, const std::string& file,
                                    const std::string& scratch);

}  // namespace tarvo::toolkit
