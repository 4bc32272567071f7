#include <filesystem>

#include "tarvo/format.h"
#include "tarvo/symbol_archive.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/pack/bundle.h"
#include "toolkit/pack/elf_file.h"
#include "toolkit/pack/separate_debug_file.h"

namespace tarvo::toolkit {
namespace {

constexpr SourceFile kElfBundle{"command/pack/elf_bundle"};

/// The name under which a crash report's module is looked up.
Result<std::string> ModuleName(const std::string& path, const ElfFacts& facts) {
  const std::string fileName = std::filesystem::path(path).filename().native();
  switch (facts.kind) {
    case ElfFacts::Kind::Program:
      return std::string(fileName == symbol_archive::kKernelName
                             ? symbol_archive::kKernelApplicationName
                             : symbol_archive::kApplicationName);
    case ElfFacts::Kind::Library:
      if (facts.sharedName.find('/') == std::string::npos)
        return facts.sharedName.empty() ? fileName : facts.sharedName;
      return PackError(kElfBundle.Here(), path,
                       "the shared name \"" + SafeText(facts.sharedName) + "\"",
                       "a name without \"/\"");
    case ElfFacts::Kind::DebugFile:
      return PackError(kElfBundle.Here(), path, "a separate debug file",
                       "the library or program that it belongs to");
    case ElfFacts::Kind::ObjectFile:
      return PackError(kElfBundle.Here(), path, "an object file", "a linked program or library");
    case ElfFacts::Kind::Other:
      break;
  }
  return PackError(kElfBundle.Here(), path, "an ELF file of another kind",
                   "a linked program or library");
}

}  // namespace

Result<Bundle> FindElfBundle(const std::string& path,
                             const std::vector<std::string>& debugDirectories) {
  const auto facts = ReadElfFacts(path);
  if (!facts) return facts.GetError();
  const auto moduleName = ModuleName(path, *facts);
  if (!moduleName) return moduleName.GetError();
  SeparateDebugFile debugFile{path, facts->holdsCode, {}};
  if (!facts->hasDebugInformation)
    debugFile = FindSeparateDebugFile(path, *facts, debugDirectories);
  if (debugFile.path.empty())
    return PackError(kElfBundle.Here(), path, "no debug information" + debugFile.refused,
                     "some in it or in a separate debug file");
  const std::string name = *moduleName + std::string(symbol_archive::kBundleSuffix);
  const auto content =
      debugFile.holdsCode ? BundleEntry::Content::DebugSections : BundleEntry::Content::Whole;
  return Bundle{name, path, debugFile.path, {{name, debugFile.path, content}}};
}

}  // namespace tarvo::toolkit
