#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string_view>
#include <tuple>

#include "tarvo/resolve_observer.h"

namespace tarvo::toolkit {

/// Frames counted by what became of them, and those that were not resolved by what they lack.
class Tally {
 public:
  /// What is missing for some frames.
  struct Lack {
    FrameOutcome outcome = FrameOutcome::Resolved;
    String build;   ///< empty where it does not matter
    String module;  ///< empty where it does not matter

    friend auto operator<=>(const Lack&, const Lack&) = default;
  };
  struct Count {
    std::uint64_t frames = 0;
    String reason;  ///< the error of one of them
  };

  /// Lacks beyond so many are counted by outcome only: reports can name any number of modules.
  static constexpr std::size_t kMaximumLacks = 100'000;

  void Add(const FrameReport& report);
  /// Adds what `other` counted, with texts of its own: a report's texts share its buffer.
  void Merge(const Tally& other);

  [[nodiscard]] std::uint64_t Frames(FrameOutcome outcome) const noexcept {
    return frames_[static_cast<std::size_t>(outcome)];
  }
  [[nodiscard]] std::uint64_t AllFrames() const noexcept;
  [[nodiscard]] const std::map<Lack, Count>& Lacks() const noexcept { return lacks_; }

 private:
  std::array<std::uint64_t, kFrameOutcomes> frames_{};
  std::map<Lack, Count> lacks_;
};

/// The words for an outcome: a name for documents ("ArchiveMissing") and a text for people.
[[nodiscard]] std::string_view OutcomeName(FrameOutcome outcome) noexcept;
[[nodiscard]] std::string_view OutcomeText(FrameOutcome outcome) noexcept;

}  // namespace tarvo::toolkit
