#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <tuple>

#include "tarvo/resolve_observer.h"
#include "toolkit/resolve/summary/module_facts.h"

namespace tarvo::toolkit {

/// What is missing for frames that were not resolved, of one report or of many.
class Lacks {
 public:
  struct Lack {
    String platform;
    String build;  ///< empty where the report states none
    String module;
    FrameOutcome outcome = FrameOutcome::Resolved;

    friend auto operator<=>(const Lack&, const Lack&) = default;
  };
  struct Count {
    std::uint64_t reports = 0;
    std::uint64_t frames = 0;
    String bundle{};  ///< that would help; empty where that is not known
    ModuleOwner owner = ModuleOwner::Application;
    String reason{};       ///< the error of one of the frames
    bool mayPass = false;  ///< the machine is at fault, as with a full disk, and not the symbols
  };
  /// What is asked for together.
  using Place = std::pair<String, String>;  ///< platform and build

  /// Lacks beyond so many are not kept: reports can name any number of modules.
  static constexpr std::size_t kMaximumLacks = 100'000;

  /// Counts `frames` frames of one report; the count's other members are to be set where it was 0.
  Count& Add(const Lack& lack, std::uint64_t frames);
  /// Adds those of one more report, with texts of its own: a report's texts share its buffer.
  void AddReport(const Lacks& ofReport);

  [[nodiscard]] const std::map<Lack, Count>& All() const noexcept { return all_; }
  /// How many reports lack something of the application's, by build and platform.
  [[nodiscard]] const std::map<Place, std::uint64_t>& Reports() const noexcept { return reports_; }

  /// Whether an archive could help, and somebody can be asked for it.
  [[nodiscard]] static bool CanBeAskedFor(const Lack& lack, const Count& count) {
    return count.owner == ModuleOwner::Application && lack.outcome != FrameOutcome::ModuleNotListed;
  }

 private:
  std::map<Lack, Count> all_;
  std::map<Place, std::uint64_t> reports_;
};

}  // namespace tarvo::toolkit
