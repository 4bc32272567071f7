#include "toolkit/pack/debug_information/companions.h"

#include <algorithm>
#include <filesystem>

#include "toolkit/base/safe_text.h"
#include "toolkit/pack/debug_information/debug_file_search.h"
#include "toolkit/pack/debug_information/elf_file.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kCompanions{"command/pack/companions"};
constexpr std::size_t kNamedParts = 5;

/// A path that stays in the directory it counts from.
bool IsInside(const fs::path& path) {
  return path.is_relative() && !path.empty() &&
         std::ranges::none_of(path, [](const fs::path& part) { return part == ".."; });
}

class CompanionFinder {
 public:
  CompanionFinder(const std::string& path, const std::string& debugFile, const DebugPlaces& places)
      : path_(path), debugFile_(debugFile), search_(places) {}

  void AddShared(const CompanionFile& shared) {
    const std::string name = fs::path(shared.name).filename().native();
    std::string found = shared.found;
    if (found.empty())
      for (const std::string& candidate : search_.Find({Beside(name)}, name, shared.id))
        if (const auto facts = ReadElfFacts(candidate); facts && facts->buildId == shared.id)
          found = candidate;
    if (found.empty()) return missing_.push_back(shared.name);
    entries_.push_back({name, found, BundleEntry::Content::Whole});
  }

  void AddSplit(const std::vector<CompanionFile>& parts) {
    if (parts.empty()) return;
    const auto packages =
        search_.Find(Packages(), fs::path(path_).filename().native() + ".dwp", {});
    if (!packages.empty())
      return entries_.push_back({.inside = ".dwp",
                                 .path = packages.front(),
                                 .content = BundleEntry::Content::Whole,
                                 .isNamedLikeBundle = true});
    for (const CompanionFile& part : parts) AddPart(part);
  }

  [[nodiscard]] Result<std::vector<BundleEntry>> Take() {
    if (missing_.empty()) return std::move(entries_);
    std::string names;
    for (std::size_t i = 0; i < std::min(missing_.size(), kNamedParts); ++i)
      names += (i == 0 ? "\"" : ", \"") + SafeText(missing_[i]) + '"';
    if (missing_.size() > kNamedParts)
      names += " and " + std::to_string(missing_.size() - kNamedParts) + " more";
    return PackError(kCompanions.Here(), path_,
                     "debug information of which parts are missing: " + names + search_.Tried(),
                     "all parts");
  }

 private:
  [[nodiscard]] std::string Beside(const fs::path& name) const {
    return fs::path(path_).parent_path() / name;
  }
  [[nodiscard]] std::vector<std::string> Packages() const {
    return {debugFile_ + ".dwp", path_ + ".dwp",
            fs::path(path_).replace_extension(".dwp").native()};
  }

  void AddPart(const CompanionFile& part) {
    const fs::path name = part.name;
    std::string found = part.found;
    if (found.empty()) {
      const auto files =
          search_.Find({fs::path(part.directory) / name, Beside(name), Beside(name.filename())},
                       name.filename().native(), {});
      if (files.empty()) return missing_.push_back(part.name);
      found = files.front();
    }
    const std::string inside = IsInside(name) ? name.lexically_normal() : name.filename();
    const auto isSame = [&](const BundleEntry& entry) { return entry.inside == inside; };
    if (std::ranges::none_of(entries_, isSame))
      entries_.push_back({inside, found, BundleEntry::Content::Whole});
  }

  const std::string& path_;
  const std::string& debugFile_;
  DebugFileSearch search_;
  std::vector<BundleEntry> entries_;
  std::vector<std::string> missing_;
};

}  // namespace

Result<std::vector<BundleEntry>> FindCompanions(const std::string& path,
                                                const std::string& debugFile,
                                                const FileDescription& description,
                                                const DebugPlaces& places) {
  CompanionFinder finder(path, debugFile, places);
  if (description.shared) finder.AddShared(*description.shared);
  finder.AddSplit(description.split);
  return finder.Take();
}

}  // namespace tarvo::toolkit
