#pragma once

#include <string>

#include "tarvo/result.h"

namespace tarvo::toolkit {

/// What a file is by its first bytes, and where those do not tell by its name.
enum class InputKind {
  Elf,
  SplitPart,  ///< .dwo, .dwp
  Pe,
  Pdb,
  AppleBundle,  ///< a directory *.dSYM
  Folder,       ///< another directory
  Other,
};

struct KnownFile {
  InputKind kind = InputKind::Other;
  std::string name;  ///< for people, where the kind is Other: "a static library"
};

/// Looks at a file or directory. An error when it cannot be opened, or is no regular file.
Result<KnownFile> KindOf(const std::string& path);

}  // namespace tarvo::toolkit
