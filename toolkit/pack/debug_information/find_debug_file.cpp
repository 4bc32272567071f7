#include "toolkit/pack/debug_information/find_debug_file.h"

#include "toolkit/pack/debug_information/elf_file.h"
#include "toolkit/pack/debug_information/separate_debug_file.h"

namespace tarvo::toolkit {

Result<std::string> FindDebugFile(const std::string& path,
                                  const std::vector<std::string>& debugDirectories) {
  const Result<ElfFacts> facts = ReadElfFacts(path);
  if (!facts) return facts.GetError();
  return FindSeparateDebugFile(path, *facts, {.directories = debugDirectories, .given = {}}).path;
}

}  // namespace tarvo::toolkit
