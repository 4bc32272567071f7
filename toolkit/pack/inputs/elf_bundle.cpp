#include <filesystem>

#include "tarvo/format.h"
#include "tarvo/symbol_archive.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/pack/debug_information/companions.h"
#include "toolkit/pack/debug_information/elf_file.h"
#include "toolkit/pack/debug_information/separate_debug_file.h"
#include "toolkit/pack/inputs/find_bundles.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kElfBundle{"command/pack/elf_bundle"};

/// Of a separate debug file, the name of what it belongs to; empty where its own does not tell.
std::string NameOfDebugged(const std::string& fileName, bool isExecutable) {
  const fs::path name = fileName;
  const bool tells =
      name.extension() == ".debug" && (isExecutable || fileName.find(".so") != std::string::npos);
  return tells ? name.stem().native() : std::string();
}

/// The name under which crash reports list the module.
Result<std::string> ModuleName(const std::string& path, const ElfFacts& facts) {
  const std::string fileName = fs::path(path).filename().native();
  switch (facts.kind) {
    case ElfFacts::Kind::Program:
      return facts.holdsCode ? fileName : NameOfDebugged(fileName, true);
    case ElfFacts::Kind::Library:
      if (facts.sharedName.find('/') == std::string::npos)
        return facts.sharedName.empty() ? fileName : facts.sharedName;
      return PackError(kElfBundle.Here(), path,
                       "the shared name \"" + SafeText(facts.sharedName) + "\"",
                       "a name without \"/\"");
    case ElfFacts::Kind::DebugFile:
      return NameOfDebugged(fileName, facts.hasInterpreter);
    case ElfFacts::Kind::ObjectFile:
      return PackError(kElfBundle.Here(), path, "an object file", "a linked program or library");
    case ElfFacts::Kind::Other:
      break;
  }
  return PackError(kElfBundle.Here(), path, "an ELF file of another kind",
                   "a linked program or library");
}

}  // namespace

Result<Bundle> FindElfBundle(const std::string& path, const DebugPlaces& places) {
  const auto facts = ReadElfFacts(path);
  if (!facts) return facts.GetError();
  const auto module = ModuleName(path, *facts);
  if (!module) return module.GetError();
  if (module->empty())
    return PackError(kElfBundle.Here(), path, "a separate debug file",
                     "the library or program that it belongs to, or NAME.debug");
  SeparateDebugFile debugFile{path, facts->holdsCode, {}};
  if (!facts->hasDebugInformation) debugFile = FindSeparateDebugFile(path, *facts, places);
  if (debugFile.path.empty())
    return PackError(kElfBundle.Here(), path, "no debug information" + debugFile.refused,
                     "some in it or in a separate debug file");
  const auto description = DescribeFile(debugFile.path, DescriptionDepth::Identity);
  if (!description) return description.GetError();
  Bundle bundle{.facts = {.bundle = {},
                          .module = *module,
                          .platform = description->platform,
                          .isExecutable = facts->IsExecutable(),
                          .slices = description->slices},
                .given = path,
                .source = debugFile.path,
                .entries = {}};
  if (!bundle.facts.slices.empty() && !facts->buildId.empty())
    bundle.facts.slices.front().id = facts->buildId;
  const auto companions = FindCompanions(path, debugFile.path, *description, places);
  if (!companions) return companions.GetError();
  const auto content =
      debugFile.holdsCode ? BundleEntry::Content::DebugSections : BundleEntry::Content::Whole;
  bundle.entries.push_back({"", debugFile.path, content, !companions->empty()});
  bundle.entries.insert(bundle.entries.end(), companions->begin(), companions->end());
  return bundle;
}

}  // namespace tarvo::toolkit
