#include "toolkit/pack/separate_debug_file.h"

#include <filesystem>

#include "toolkit/base/safe_text.h"
#include "toolkit/pack/bundle.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

struct Candidate {
  fs::path path;
  bool isByLink;
};

std::vector<Candidate> Candidates(const std::string& path, const ElfFacts& facts,
                                  const std::vector<std::string>& debugDirectories) {
  std::vector<Candidate> candidates;
  if (facts.buildId.size() > 2)
    for (const fs::path directory : debugDirectories)
      candidates.push_back({directory / ".build-id" / facts.buildId.substr(0, 2) /
                                (facts.buildId.substr(2) + ".debug"),
                            false});
  // A name that leads elsewhere is no name of a file.
  if (!facts.debugLink || facts.debugLink->fileName.find('/') != std::string::npos)
    return candidates;
  std::error_code error;
  const fs::path own = fs::canonical(path, error).parent_path();
  const std::string& name = facts.debugLink->fileName;
  candidates.push_back({own / name, true});
  candidates.push_back({own / ".debug" / name, true});
  for (const fs::path directory : debugDirectories)
    candidates.push_back({directory / own.relative_path() / name, true});
  return candidates;
}

/// Why `candidate` is not the debug file, with its facts in `found`; empty when it is.
std::string Objection(const Candidate& candidate, const ElfFacts& facts, ElfFacts& found) {
  const auto read = ReadElfFacts(candidate.path.native());
  if (!read) return "cannot be read: " + read.GetError().Text().ToStdString();
  found = *read;
  if (!facts.buildId.empty() && !found.buildId.empty() && facts.buildId != found.buildId)
    return "has another build id";
  if (candidate.isByLink) {
    const auto checksum = FileChecksum(candidate.path.native());
    if (!checksum) return "cannot be read: " + checksum.GetError().Text().ToStdString();
    if (*checksum != facts.debugLink->checksum) return "has another checksum";
  }
  return found.hasDebugInformation ? "" : "has no debug information";
}

}  // namespace

SeparateDebugFile FindSeparateDebugFile(const std::string& path, const ElfFacts& facts,
                                        const std::vector<std::string>& debugDirectories) {
  SeparateDebugFile result;
  std::error_code error;
  for (const Candidate& candidate : Candidates(path, facts, debugDirectories)) {
    if (!fs::exists(candidate.path, error) || fs::equivalent(candidate.path, path, error)) continue;
    ElfFacts found;
    const std::string objection = Objection(candidate, facts, found);
    if (objection.empty()) return {candidate.path.native(), found.holdsCode, {}};
    result.refused += ", but \"" + SafeText(candidate.path.native()) + "\" " + objection;
  }
  return result;
}

Result<std::string> FindDebugFile(const std::string& path,
                                  const std::vector<std::string>& debugDirectories) {
  const Result<ElfFacts> facts = ReadElfFacts(path);
  if (!facts) return facts.GetError();
  return FindSeparateDebugFile(path, *facts, debugDirectories).path;
}

}  // namespace tarvo::toolkit
