#include "toolkit/pack/archive/archive_plan.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <iterator>
#include <set>
#include <string_view>
#include <tuple>
#include <utility>

#include "tarvo/format.h"
#include "tarvo/string.h"
#include "tarvo/symbol_archive.h"
#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kArchivePlan{"command/pack/archive_plan"};

std::string Architectures(const ManifestEntry& entry) {
  std::string text;
  for (const SymbolSlice& slice : entry.slices)
    text += (text.empty() ? "" : "+") + slice.architecture;
  return text;
}

bool ServesTheSame(const ManifestEntry& a, const ManifestEntry& b) {
  return a.module == b.module && a.platform == b.platform && a.isExecutable == b.isExecutable &&
         Architectures(a) == Architectures(b);
}

/// The look-up would find but one of two bundles whose names differ in the suffix's letters.
std::string ModuleOf(const std::string& bundle) {
  return bundle.substr(
      0, bundle.size() - std::min(bundle.size(), symbol_archive::kBundleSuffix.size()));
}

std::string WithSuffix(std::string_view module) {
  return std::string(module) + std::string(symbol_archive::kBundleSuffix);
}

/// The names that programs are looked up under, whoever made the bundle.
bool IsApplication(const std::string& bundle) {
  constexpr std::array<std::string_view, 4> kApplications = {symbol_archive::kApplicationName,
                                                             symbol_archive::kKernelApplicationName,
                                                             "Pallado.app", "Pallado Pebble.app"};
  return std::ranges::find(kApplications, ModuleOf(bundle)) != kApplications.end();
}

/// The name of a bundle that nobody else claims, but for the look-up's for programs.
std::string OwnName(const ManifestEntry& entry) {
  const std::string name = fs::path(entry.bundle).filename().native();
  const bool keeps = name.ends_with(symbol_archive::kAppleBundleSuffix) &&
                     (!entry.isExecutable || IsApplication(name));
  return keeps ? name : WithSuffix(entry.module);
}

std::string ApplicationName(const ManifestEntry& entry) {
  return WithSuffix(entry.module == symbol_archive::kKernelName
                        ? symbol_archive::kKernelApplicationName
                        : symbol_archive::kApplicationName);
}

std::vector<std::string> NamesFor(const ManifestEntry& entry) {
  const std::string own = OwnName(entry);
  std::vector<std::string> names;
  if (entry.isExecutable && !IsApplication(own)) names.push_back(ApplicationName(entry));
  names.push_back(own);
  const std::string processors = Architectures(entry);
  const std::string platform = entry.platform.empty() ? "unknown" : entry.platform;
  names.push_back(platform + (processors.empty() ? "" : "-" + processors) + '/' + own);
  return names;
}

/// Whether a program is called so; on Windows without the end of its file's name too.
bool IsCalled(const ManifestEntry& entry, const std::string& name) {
  const fs::path module = entry.module;
  return entry.module == name || (entry.platform == "windows" && module.extension() == ".exe" &&
                                  String(module.stem().native()).EqualsIgnoringCase(name));
}

/// A bundle of the new archive on the way to its name.
struct Planned {
  ManifestEntry entry;  ///< `bundle` becomes its name
  std::string was;      ///< its name in the old archive; empty: it is new
  std::size_t number;   ///< of a new one, its place among these
  bool isNamed = false;
};

class Planner {
 public:
  Planner(const Manifest& old, const std::string& application)
      : old_(old), application_(application) {}

  Result<ArchivePlan> Plan(std::vector<Bundle>& bundles) {
    if (auto twins = RefuseTwins(bundles); !twins) return twins.GetError();
    ArchivePlan plan;
    for (const Bundle& bundle : bundles) plan.replaced.push_back(ReplacedBy(bundle.facts));
    Collect(bundles, plan.replaced);
    NameAll();
    for (const Planned& planned : all_) {
      plan.manifest.push_back(planned.entry);
      if (planned.was.empty())
        bundles[planned.number].facts = planned.entry;
      else
        plan.kept.push_back({planned.entry.bundle, planned.was});
    }
    std::ranges::sort(plan.manifest, {}, &ManifestEntry::bundle);
    std::ranges::sort(plan.kept, {}, &KeptBundle::bundle);
    return plan;
  }

 private:
  static Result<void> RefuseTwins(const std::vector<Bundle>& bundles) {
    for (auto bundle = bundles.begin(); bundle != bundles.end(); ++bundle) {
      const auto same = std::find_if(bundles.begin(), bundle, [&](const Bundle& other) {
        return ServesTheSame(other.facts, bundle->facts);
      });
      if (same != bundle)
        return Error::Plain(kArchivePlan.Here(),
                            Format("Cannot pack both \"@\" and \"@\": they are @ in the archive.",
                                   SafeText(same->given), SafeText(bundle->given),
                                   SafeText(NamesFor(bundle->facts).front())));
    }
    return {};
  }

  [[nodiscard]] ManifestEntry ReplacedBy(const ManifestEntry& facts) const {
    const auto same = std::ranges::find_if(
        old_, [&](const ManifestEntry& entry) { return ServesTheSame(entry, facts); });
    return same == old_.end() ? ManifestEntry() : *same;
  }

  void Collect(const std::vector<Bundle>& bundles, const std::vector<ManifestEntry>& replaced) {
    for (std::size_t i = 0; i < bundles.size(); ++i) {
      all_.push_back({bundles[i].facts, {}, i});
      all_.back().entry.isApplication = replaced[i].isApplication;
    }
    for (const ManifestEntry& entry : old_) {
      const bool isReplaced =
          std::ranges::find(replaced, entry.bundle, &ManifestEntry::bundle) != replaced.end();
      const bool isThere = std::ranges::find(all_, entry.bundle, &Planned::was) != all_.end();
      if (!isReplaced && !isThere) all_.push_back({entry, entry.bundle, 0});
    }
    if (application_.empty()) return;
    for (Planned& planned : all_)
      planned.entry.isApplication =
          planned.entry.isExecutable && IsCalled(planned.entry, application_);
  }

  void NameAll() {
    std::ranges::sort(all_, {}, [](const Planned& planned) {
      const ManifestEntry& entry = planned.entry;
      return std::tuple(!entry.isApplication, !IsApplication(OwnName(entry)), entry.module,
                        entry.platform, Architectures(entry), entry.isExecutable);
    });
    for (Planned& planned : all_)
      if (HasNameOfOthers(planned)) Name(planned, planned.was);
    for (Planned& planned : all_)
      if (planned.entry.isExecutable) Name(planned, NamesFor(planned.entry).front());
    // No look-up asks for a program by its own name: libraries go first.
    for (const bool isExecutable : {false, true})
      for (Planned& planned : all_)
        if (planned.entry.isExecutable == isExecutable) NameSomehow(planned);
  }

  /// A bundle that somebody else has named, or of which nothing but its name is known.
  static bool HasNameOfOthers(const Planned& planned) {
    if (planned.was.empty()) return false;
    const auto names = NamesFor(planned.entry);
    return planned.entry.platform.empty() || std::ranges::find(names, planned.was) == names.end();
  }

  void Name(Planned& planned, const std::string& name) {
    if (planned.isNamed || !taken_.insert(ModuleOf(name)).second) return;
    planned.entry.bundle = name;
    planned.isNamed = true;
  }

  void NameSomehow(Planned& planned) {
    const auto names = NamesFor(planned.entry);
    for (const std::string& name : names) Name(planned, name);
    for (int i = 2; !planned.isNamed; ++i) Name(planned, std::to_string(i) + '-' + names.back());
  }

  const Manifest& old_;
  const std::string& application_;
  std::vector<Planned> all_;
  std::set<std::string> taken_;
};

}  // namespace

Result<ArchivePlan> PlanArchive(const Manifest& old, std::vector<Bundle>& bundles,
                                const std::string& application) {
  return Planner(old, application).Plan(bundles);
}

std::vector<ManifestEntry> ApplicantsIn(const Manifest& manifest) {
  std::vector<ManifestEntry> applicants;
  std::ranges::copy_if(manifest, std::back_inserter(applicants), [](const ManifestEntry& entry) {
    return entry.isExecutable &&
           ModuleOf(NamesFor(entry).front()) == symbol_archive::kApplicationName;
  });
  return applicants;
}

}  // namespace tarvo::toolkit
