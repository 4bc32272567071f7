#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tarvo/result.h"
#include "toolkit/pack/bundle.h"

namespace tarvo::toolkit {

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

// One function for each kind of file; a file error that names `path`, what was found and what was
// expected where there is no bundle.

/// Of the dSYM directory `path`: all of it, under its own name. An error when it has no file in
/// "Contents/Resources/DWARF", or holds anything but files and directories.
Result<Bundle> FindAppleBundle(const std::string& path);

/// Of an ELF file: its debug sections, with what they need of other files.
Result<Bundle> FindElfBundle(const std::string& path, const DebugPlaces& places);

/// Of a PE file, with its PDB where its debug information is there; or of a PDB alone.
Result<Bundle> FindWindowsBundle(const std::string& path, const DebugPlaces& places);

}  // namespace tarvo::toolkit
