#include "toolkit/pack/archive_plan.h"

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "tarvo/format.h"
#include "tarvo/symbol_archive.h"
#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

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

std::vector<std::string> NamesFor(const ManifestEntry& facts) {
  const std::string own = facts.bundle.empty() ? WithSuffix(facts.module) : facts.bundle;
  std::vector<std::string> names;
  if (facts.isExecutable && !IsApplication(own))
    names.push_back(WithSuffix(facts.module == symbol_archive::kKernelName
                                   ? symbol_archive::kKernelApplicationName
                                   : symbol_archive::kApplicationName));
  names.push_back(own);
  const std::string processors = Architectures(facts);
  names.push_back(facts.platform + (processors.empty() ? "" : "-" + processors) + '/' + own);
  return names;
}

class Planner {
 public:
  explicit Planner(const Manifest& old) : old_(old), isReplaced_(old.size()) {
    for (const ManifestEntry& entry : old) taken_.insert(ModuleOf(entry.bundle));
  }

  Result<ArchivePlan> Plan(std::vector<Bundle>& bundles) {
    ArchivePlan plan;
    for (std::size_t i = 0; i < bundles.size(); ++i) {
      const auto same = std::find_if(
          bundles.begin(), bundles.begin() + static_cast<std::ptrdiff_t>(i),
          [&](const Bundle& other) { return ServesTheSame(other.facts, bundles[i].facts); });
      if (same != bundles.begin() + static_cast<std::ptrdiff_t>(i)) return Both(*same, bundles[i]);
      plan.replaced.push_back(Take(bundles[i].facts));
      plan.manifest.push_back(bundles[i].facts);
    }
    for (std::size_t i = 0; i < old_.size(); ++i) {
      if (isReplaced_[i]) continue;
      plan.kept.push_back(old_[i].bundle);
      plan.manifest.push_back(old_[i]);
    }
    std::ranges::sort(plan.manifest, {}, &ManifestEntry::bundle);
    return plan;
  }

 private:
  static Error Both(const Bundle& first, const Bundle& second) {
    return Error::Plain(
        kArchivePlan.Here(),
        Format("Cannot pack both \"@\" and \"@\": they are @ in the archive.",
               SafeText(first.given), SafeText(second.given), SafeText(first.facts.bundle)));
  }

  /// Names the bundle of `facts`; the entry that it replaces, or an empty one.
  ManifestEntry Take(ManifestEntry& facts) {
    for (std::size_t i = 0; i < old_.size(); ++i) {
      if (isReplaced_[i] || !ServesTheSame(old_[i], facts)) continue;
      isReplaced_[i] = true;
      facts.bundle = old_[i].bundle;
      return old_[i];
    }
    for (const std::string& name : NamesFor(facts)) {
      facts.bundle = name;
      if (taken_.insert(ModuleOf(name)).second) return {};
    }
    // One of which nothing but its name is known stands where this one must.
    for (std::size_t i = 0; i < old_.size(); ++i)
      if (ModuleOf(old_[i].bundle) == ModuleOf(facts.bundle)) isReplaced_[i] = true;
    return {
        .bundle = facts.bundle, .module = {}, .platform = {}, .isExecutable = false, .slices = {}};
  }

  const Manifest& old_;
  std::vector<bool> isReplaced_;
  std::set<std::string> taken_;
};

}  // namespace

Result<ArchivePlan> PlanArchive(const Manifest& old, std::vector<Bundle>& bundles) {
  return Planner(old).Plan(bundles);
}

}  // namespace tarvo::toolkit
