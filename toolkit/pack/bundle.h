#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tarvo/result.h"
#include "toolkit/store/manifest.h"

namespace tarvo::toolkit {

/// A file or directory of a bundle, not yet read.
struct BundleEntry {
  enum class Content {
    Directory,
    Whole,          ///< the file as it is
    DebugSections,  ///< of an ELF file that holds code too
  };
  std::string inside;  ///< its path in the bundle; empty where the bundle is this one file
  std::string path;    ///< where its content comes from
  Content content = Content::Whole;
  /// Whether the bundle's name without its suffix stands in front of `inside`, so that readers see
  /// which of several files is the one to begin with.
  bool isNamedLikeBundle = false;
};

/// What the archive of a build holds for one module.
struct Bundle {
  ManifestEntry facts;  ///< `bundle` is a name that it has on its own (a dSYM), else empty
  std::string given;    ///< the file or directory that the user named
  std::string source;   ///< what its debug information comes from: `given` or a separate file
  std::vector<BundleEntry> entries;
};

/// Where parts of debug information are looked for that are not in the file.
struct DebugPlaces {
  std::vector<std::string> directories;  ///< laid out as debuggers know it; and searched as a whole
  std::vector<std::string> given;        ///< files that the user named
};

/// "Cannot pack "PATH": found FOUND, expected EXPECTED."
Error PackError(SourceLocation where, const std::string& path, const std::string& found,
                std::string_view expected);

}  // namespace tarvo::toolkit
