#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "tarvo/resolve_observer.h"
#include "toolkit/resolve/summary/lacks.h"
#include "toolkit/resolve/summary/module_facts.h"

namespace tarvo::toolkit {

/// Frames counted by what became of them, and what is missing for those that were not resolved.
class Tally {
 public:
  /// Counts a frame of the report that `facts` are of.
  void Add(const FrameReport& report, ModuleFacts& facts);
  /// Adds the counts of frames alone.
  void AddFrames(const Tally& other);

  [[nodiscard]] std::uint64_t Frames(FrameOutcome outcome) const noexcept {
    return frames_[static_cast<std::size_t>(outcome)];
  }
  [[nodiscard]] std::uint64_t AllFrames() const noexcept;
  /// Of one report.
  [[nodiscard]] const Lacks& ReportLacks() const noexcept { return lacks_; }

 private:
  std::array<std::uint64_t, kFrameOutcomes> frames_{};
  Lacks lacks_;
};

/// The words for an outcome: a name for documents ("ArchiveMissing") and a text for people.
[[nodiscard]] std::string_view OutcomeName(FrameOutcome outcome) noexcept;
[[nodiscard]] std::string_view OutcomeText(FrameOutcome outcome) noexcept;
/// The outcome of that name; nothing where there is none.
[[nodiscard]] std::optional<FrameOutcome> OutcomeOfName(std::string_view name) noexcept;

}  // namespace tarvo::toolkit
