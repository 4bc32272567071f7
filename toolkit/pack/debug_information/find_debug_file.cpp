#include "toolkit/pack/debug_information/find_debug_file.h"

#include "toolkit/pack/debug_information/elf_file.h"
#include "toolkit/pack/debug_information/separate_debug_file.h"

namespace tarvo::toolkit {

Result<FoundDebugFile> FindDebugFile(const std::string& path,
                                     const std::vector<std::string>& debugDirectories) {
  const Result<ElfFacts> facts = ReadElfFacts(path);
  if (!facts) return facts.GetError();
  return FoundDebugFile{
      FindSeparateDebugFile(path, *facts, {.directories = debugDirectories, .given = {}}).path,
      DebugLinkPlaces(path, *facts, debugDirectories)};
}

}  // namespace tarvo::toolkit
