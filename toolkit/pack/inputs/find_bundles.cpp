#include "toolkit/pack/inputs/find_bundles.h"

#include <glob.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <utility>

#include "tarvo/format.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/pack/inputs/input_kind.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kFindBundles{"command/pack/bundle"};
constexpr std::string_view kExpected =
    "an ELF or PE program or library, a separate debug file, a PDB, a dSYM bundle or a folder of "
    "them";
constexpr std::size_t kMostFilesOfFolder = 1'000'000;

/// A file to look at.
struct Input {
  std::string path;
  InputKind kind = InputKind::Other;
  bool isNamed = false;  ///< by the user, and not only found in a folder
};

/// Collects the inputs, each file once, whatever names lead to it.
class Inputs {
 public:
  explicit Inputs(FoundBundles& found) : found_(found) {}

  void Add(const std::string& path) {
    std::error_code error;
    if (fs::exists(fs::status(path, error))) return AddExisting(path);
    glob_t matches{};
    const bool isPattern = path.find_first_of("*?[") != std::string::npos &&
                           glob(path.c_str(), 0, nullptr, &matches) == 0;
    for (std::size_t i = 0; isPattern && i < matches.gl_pathc; ++i)
      AddExisting(matches.gl_pathv[i]);
    globfree(&matches);
    if (!isPattern)
      found_.errors.push_back(PackError(kFindBundles.Here(), path, "nothing there", kExpected));
  }

  [[nodiscard]] const std::vector<Input>& All() const { return inputs_; }

 private:
  void AddExisting(const std::string& path) {
    const auto known = KindOf(path);
    if (!known) return found_.errors.push_back(known.GetError());
    if (known->kind == InputKind::Folder) return AddFolder(path);
    if (known->kind != InputKind::Other) return Take(path, known->kind, true);
    found_.errors.push_back(PackError(kFindBundles.Here(), path, known->name, kExpected));
  }

  void AddFolder(const std::string& folder) {
    std::vector<std::pair<std::string, InputKind>> files;
    std::error_code error;
    fs::recursive_directory_iterator entry(folder, fs::directory_options::skip_permission_denied,
                                           error);
    for (std::size_t seen = 0;
         !error && entry != fs::recursive_directory_iterator() && seen < kMostFilesOfFolder;
         entry.increment(error), ++seen) {
      const fs::file_type type = entry->status(error).type();
      if (type != fs::file_type::regular && type != fs::file_type::directory) continue;
      const auto known = KindOf(entry->path().native());
      if (!known || known->kind == InputKind::Folder || known->kind == InputKind::Other) continue;
      if (known->kind == InputKind::AppleBundle) entry.disable_recursion_pending();
      files.emplace_back(entry->path().native(), known->kind);
    }
    std::ranges::sort(files);
    if (files.empty())
      found_.errors.push_back(
          PackError(kFindBundles.Here(), folder, "a folder with nothing to pack in it", kExpected));
    for (const auto& [path, kind] : files) Take(path, kind, false);
  }

  void Take(const std::string& path, InputKind kind, bool isNamed) {
    std::error_code error;
    const fs::path own = fs::canonical(path, error);
    if (seen_.insert(error ? path : own.native()).second) inputs_.push_back({path, kind, isNamed});
  }

  FoundBundles& found_;
  std::vector<Input> inputs_;
  std::set<std::string> seen_;
};

/// Parts that serve other files, and are packed with them.
bool IsPart(const Input& input) {
  return input.kind == InputKind::SplitPart || input.kind == InputKind::Pdb ||
         fs::path(input.path).extension() == ".debug";
}

Result<Bundle> FindBundle(const Input& input, const DebugPlaces& places) {
  switch (input.kind) {
    case InputKind::AppleBundle:
      return FindAppleBundle(input.path);
    case InputKind::Pe:
    case InputKind::Pdb:
      return FindWindowsBundle(input.path, places);
    default:
      return FindElfBundle(input.path, places);
  }
}

bool IsSame(const ManifestEntry& a, const ManifestEntry& b) {
  return a.module == b.module && a.platform == b.platform && a.isExecutable == b.isExecutable &&
         a.slices == b.slices && !a.slices.empty() && !a.slices.front().id.empty();
}

class BundleFinder {
 public:
  BundleFinder(const std::vector<Input>& inputs, DebugPlaces places,
               const std::function<void(const std::string& path)>& onFile, FoundBundles& found)
      : inputs_(inputs), places_(std::move(places)), onFile_(onFile), found_(found) {}

  void Find() {
    // First what parts may belong to, then the parts that nobody asked for.
    for (const Input& input : inputs_)
      if (!IsPart(input)) Take(input);
    for (const Input& input : inputs_)
      if (IsPart(input) && !IsUsed(input.path)) TakePart(input);
  }

 private:
  [[nodiscard]] bool IsUsed(const std::string& path) const {
    return std::ranges::any_of(found_.bundles, [&](const Bundle& bundle) {
      return std::ranges::find(bundle.entries, path, &BundleEntry::path) != bundle.entries.end();
    });
  }

  void TakePart(const Input& input) {
    if (input.kind != InputKind::SplitPart) return Take(input);
    found_.notes.push_back("Not packed: \"" + SafeText(input.path) +
                           "\", which no program or library here names as a part.");
  }

  void Take(const Input& input) {
    onFile_(input.path);
    auto bundle = FindBundle(input, places_);
    if (!bundle && input.isNamed) return found_.errors.push_back(bundle.GetError());
    if (!bundle) return found_.notes.push_back(bundle.GetError().Text().ToStdString());
    const bool isThere = std::ranges::any_of(
        found_.bundles, [&](const Bundle& other) { return IsSame(other.facts, bundle->facts); });
    if (!isThere) return found_.bundles.push_back(*std::move(bundle));
    found_.notes.push_back("Packed once: \"" + SafeText(input.path) +
                           "\" is a copy of another file.");
  }

  const std::vector<Input>& inputs_;
  const DebugPlaces places_;
  const std::function<void(const std::string& path)>& onFile_;
  FoundBundles& found_;
};

}  // namespace

FoundBundles FindBundles(const std::vector<std::string>& paths,
                         const std::vector<std::string>& debugDirectories,
                         const std::function<void(const std::string& path)>& onFile) {
  FoundBundles found;
  Inputs inputs(found);
  for (const std::string& path : paths) inputs.Add(path);
  DebugPlaces places{.directories = debugDirectories, .given = {}};
  for (const Input& input : inputs.All()) places.given.push_back(input.path);
  BundleFinder(inputs.All(), std::move(places), onFile, found).Find();
  return found;
}

}  // namespace tarvo::toolkit
