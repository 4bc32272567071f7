#include "toolkit/resolve/tally.h"

#include <numeric>

#include "tarvo/crash_report.h"
namespace tarvo::toolkit {
namespace {

struct Words {
  std::string_view name;
  std::string_view text;
};

/// By FrameOutcome.
constexpr std::array<Words, kFrameOutcomes> kWords = {
    Words{"Resolved", "resolved"},
    Words{"NoModule", "no module or no address in the report"},
    Words{"ModuleNotListed", "module not listed in the report"},
    Words{"NoBuild", "no build in the report"},
    Words{"ArchiveMissing", "symbol archive missing"},
    Words{"ArchiveUnreadable", "symbol archive unreadable"},
    Words{"BundleMissing", "symbols missing in the archive"},
    Words{"NoDebugInformation", "no usable debug information"},
    Words{"AddressOutside", "address outside what the symbols cover"},
    Words{"SymbolsWrong", "symbols of another build, system or module"},
};

/// What would have to be there for the frame to be resolved.
Tally::Lack LackOf(const FrameReport& report) {
  const auto* module = report.frame.FindAs<String>(crash_report::property::kModuleName);
  const bool isOfWholeBuild = report.outcome == FrameOutcome::NoArchive ||
                              report.outcome == FrameOutcome::UnreadableArchive;
  return {report.outcome, report.build, module == nullptr || isOfWholeBuild ? String() : *module};
}

String OwnCopy(const String& text) { return String(text.View()); }

}  // namespace

void Tally::Add(const FrameReport& report) {
  ++frames_[static_cast<std::size_t>(report.outcome)];
  if (report.outcome == FrameOutcome::Resolved || report.outcome == FrameOutcome::NoModule) return;
  Count& count = lacks_[LackOf(report)];
  if (++count.frames == 1 && report.error != nullptr) count.reason = report.error->Text();
}

void Tally::Merge(const Tally& other) {
  for (std::size_t i = 0; i < kFrameOutcomes; ++i) frames_[i] += other.frames_[i];
  for (const auto& [lack, count] : other.lacks_) {
    auto own = lacks_.find(lack);
    if (own == lacks_.end()) {
      if (lacks_.size() >= kMaximumLacks) continue;
      const Lack copy{lack.outcome, OwnCopy(lack.build), OwnCopy(lack.module)};
      own = lacks_.emplace(copy, Count{0, OwnCopy(count.reason)}).first;
    }
    own->second.frames += count.frames;
  }
}

std::uint64_t Tally::AllFrames() const noexcept {
  return std::accumulate(frames_.begin(), frames_.end(), std::uint64_t{0});
}

std::string_view OutcomeName(FrameOutcome outcome) noexcept {
  return kWords[static_cast<std::size_t>(outcome)].name;
}
std::string_view OutcomeText(FrameOutcome outcome) noexcept {
  return kWords[static_cast<std::size_t>(outcome)].text;
}

}  // namespace tarvo::toolkit
