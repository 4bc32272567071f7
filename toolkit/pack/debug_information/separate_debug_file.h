#pragma once

#include <string>
#include <vector>

#include "toolkit/pack/bundle.h"
#include "toolkit/pack/debug_information/elf_file.h"

namespace tarvo::toolkit {

struct SeparateDebugFile {
  std::string path;  ///< empty: there is none
  bool holdsCode = false;
  /// Files that stand where one is looked for, each with the reason why it is not the one, and the
  /// places where nothing is. For messages; starts with ", but " or "; looked for in ".
  std::string refused;
};

/// Looks for the separate debug file of the ELF file `path` where debuggers do, and in what else
/// there is:
///
/// 1. by its build id: DEBUGDIR/.build-id/xx/yyyy.debug;
/// 2. by the name in its debug link: beside the file, in ".debug" beside it, and below DEBUGDIR in
///    a directory like the file's own;
/// 3. by that name, or the file's own and ".debug", among the files that were named and anywhere
///    below DEBUGDIR.
///
/// The first one counts that has debug information, the same build id (where both have one) and, by
/// a debug link, the link's checksum. By the file's own name the build id must be there.
SeparateDebugFile FindSeparateDebugFile(const std::string& path, const ElfFacts& facts,
                                        const DebugPlaces& places);

/// The places of the second step; none without a debug link.
[[nodiscard]] std::vector<std::string> DebugLinkPlaces(const std::string& path,
                                                       const ElfFacts& facts,
                                                       const std::vector<std::string>& directories);

}  // namespace tarvo::toolkit
