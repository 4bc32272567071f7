#pragma once

#include <functional>
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

/// What came of the files that the user named.
struct FoundBundles {
  std::vector<Bundle> bundles;
  std::vector<Error> errors;       ///< one for each file that was named and cannot be packed
  std::vector<std::string> notes;  ///< what was passed over in folders, and why
};

/// The bundles of what `paths` name: ELF programs and libraries, PE files with their PDBs, dSYM
/// bundles, PDBs and separate debug files; folders, of which everything of these kinds is taken
/// that is below; patterns (glob(7)) where there is no such file. Parts of split debug information
/// (.dwo, .dwp), supplementary and separate debug files serve the files that they belong to. One
/// file under several names and copies of one are packed once.
/// `onFile` is told of each file that is looked at.
FoundBundles FindBundles(const std::vector<std::string>& paths,
                         const std::vector<std::string>& debugDirectories,
                         const std::function<void(const std::string& path)>& onFile);

/// The separate debug file of the ELF file `path`, by its build id and its debug link, in
/// `debugDirectories` and beside it; empty when there is none. An error when `path` cannot be read.
Result<std::string> FindDebugFile(const std::string& path,
                                  const std::vector<std::string>& debugDirectories);

// One function for each kind of file; a file error that names `path`, what was found and what was
// expected where there is no bundle.

/// Of the dSYM directory `path`: all of it, under its own name. An error when it has no file in
/// "Contents/Resources/DWARF", or holds anything but files and directories.
Result<Bundle> FindAppleBundle(const std::string& path);

/// Of an ELF file: its debug sections, with what they need of other files.
Result<Bundle> FindElfBundle(const std::string& path, const DebugPlaces& places);

/// Of a PE file, with its PDB where its debug information is there; or of a PDB alone.
Result<Bundle> FindWindowsBundle(const std::string& path, const DebugPlaces& places);

/// "Cannot pack "PATH": found FOUND, expected EXPECTED."
Error PackError(SourceLocation where, const std::string& path, const std::string& found,
                std::string_view expected);

}  // namespace tarvo::toolkit
