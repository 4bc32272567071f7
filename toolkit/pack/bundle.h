#pragma once

#include <string>
#include <vector>

#include "tarvo/result.h"

namespace tarvo::toolkit {

/// A file or directory of an archive, not yet read.
struct BundleEntry {
  enum class Content {
    Directory,
    Whole,          ///< the file as it is
    DebugSections,  ///< of an ELF file that holds code too
  };
  std::string name;  ///< in the archive, starting with the bundle's name
  std::string path;  ///< where its content comes from
  Content content = Content::Whole;
};

/// What the archive of a build holds for one module.
struct Bundle {
  std::string name;    ///< "libscene.so.1.dsym"
  std::string given;   ///< the file or directory that the user named
  std::string source;  ///< what its debug information comes from: `given` or a separate file
  std::vector<BundleEntry> entries;
};

/// The bundle of what stands at `path`: an ELF program or shared library, or a dSYM bundle. Its
/// debug information is looked for in the ELF file itself and in its separate debug file, below
/// `debugDirectories` too. A file error that names `path`, what was found and what was expected
/// when there is none, or it is anything else.
Result<Bundle> FindBundle(const std::string& path,
                          const std::vector<std::string>& debugDirectories);

/// The separate debug file of the ELF file `path`, by its build id and its debug link, in
/// `debugDirectories` and beside it; empty when there is none. An error when `path` cannot be read.
Result<std::string> FindDebugFile(const std::string& path,
                                  const std::vector<std::string>& debugDirectories);

/// The bundle of the dSYM directory `path`: all of it, under its own name. A file error when it has
/// no file in "Contents/Resources/DWARF", or holds anything but files and directories.
Result<Bundle> FindAppleBundle(const std::string& path);

/// The bundle of the ELF file `path`.
Result<Bundle> FindElfBundle(const std::string& path,
                             const std::vector<std::string>& debugDirectories);

/// "Cannot pack "PATH": found FOUND, expected EXPECTED."
Error PackError(SourceLocation where, const std::string& path, const std::string& found,
                std::string_view expected);

}  // namespace tarvo::toolkit
