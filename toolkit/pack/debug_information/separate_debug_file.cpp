#include "toolkit/pack/debug_information/separate_debug_file.h"

#include <filesystem>

#include "toolkit/base/safe_text.h"
#include "toolkit/pack/debug_information/debug_file_search.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

/// What a candidate must have of the file itself.
enum class Proof { BuildId, Checksum };

/// Why `candidate` is not the debug file, with its facts in `found`; empty when it is.
std::string Objection(const std::string& candidate, Proof proof, const ElfFacts& facts,
                      ElfFacts& found) {
  const auto read = ReadElfFacts(candidate);
  if (!read) return "cannot be read: " + read.GetError().Text().ToStdString();
  found = *read;
  if (!facts.buildId.empty() && !found.buildId.empty() && facts.buildId != found.buildId)
    return "has another build id";
  const bool isById = !facts.buildId.empty() && facts.buildId == found.buildId;
  if (proof == Proof::BuildId && !isById) return "has no build id";
  if (proof == Proof::Checksum) {
    const auto checksum = FileChecksum(candidate);
    if (!checksum) return "cannot be read: " + checksum.GetError().Text().ToStdString();
    if (*checksum != facts.debugLink->checksum) return "has another checksum";
  }
  return found.hasDebugInformation ? "" : "has no debug information";
}

class Finder {
 public:
  Finder(const std::string& path, const ElfFacts& facts, const DebugPlaces& places)
      : path_(path), facts_(facts), places_(places), search_(places) {}

  SeparateDebugFile Find() {
    std::error_code error;
    const fs::path own = fs::canonical(path_, error);
    bool isFound = Choose(search_.Find({}, {}, facts_.buildId), Proof::BuildId);
    const auto linked = DebugLinkPlaces(path_, facts_, places_.directories);
    if (!isFound && !linked.empty())
      isFound = Choose(search_.Find(linked, facts_.debugLink->fileName, {}), Proof::Checksum);
    if (!isFound && !facts_.buildId.empty())
      isFound =
          Choose(search_.Find({own.native() + ".debug"}, own.filename().native() + ".debug", {}),
                 Proof::BuildId);
    if (!isFound) result_.refused += search_.Tried();
    return result_;
  }

 private:
  bool Choose(const std::vector<std::string>& candidates, Proof proof) {
    std::error_code error;
    for (const std::string& candidate : candidates) {
      if (fs::equivalent(candidate, path_, error)) continue;
      ElfFacts found;
      const std::string objection = Objection(candidate, proof, facts_, found);
      if (objection.empty()) {
        result_ = {candidate, found.holdsCode, {}};
        return true;
      }
      result_.refused += ", but \"" + SafeText(candidate) + "\" " + objection;
    }
    return false;
  }

  const std::string& path_;
  const ElfFacts& facts_;
  const DebugPlaces& places_;
  DebugFileSearch search_;
  SeparateDebugFile result_;
};

}  // namespace

std::vector<std::string> DebugLinkPlaces(const std::string& path, const ElfFacts& facts,
                                         const std::vector<std::string>& directories) {
  // A name that leads elsewhere is no name of a file.
  if (!facts.debugLink || facts.debugLink->fileName.find('/') != std::string::npos) return {};
  std::error_code error;
  const fs::path own = fs::canonical(path, error).parent_path();
  const std::string& name = facts.debugLink->fileName;
  std::vector<std::string> places = {own / name, own / ".debug" / name};
  for (const fs::path directory : directories)
    places.push_back(directory / own.relative_path() / name);
  return places;
}

SeparateDebugFile FindSeparateDebugFile(const std::string& path, const ElfFacts& facts,
                                        const DebugPlaces& places) {
  return Finder(path, facts, places).Find();
}

}  // namespace tarvo::toolkit
