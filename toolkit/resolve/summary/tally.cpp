#include "toolkit/resolve/summary/tally.h"

#include <algorithm>
#include <numeric>

#include "tarvo/crash_report.h"
#include "tarvo/symbol_archive.h"

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

}  // namespace

void Tally::Add(const FrameReport& report, ModuleFacts& facts) {
  ++frames_[static_cast<std::size_t>(report.outcome)];
  if (report.outcome == FrameOutcome::Resolved || report.outcome == FrameOutcome::NoModule) return;
  const auto* module = report.frame.FindAs<String>(crash_report::property::kModuleName);
  const String name = module == nullptr ? String() : *module;
  Lacks::Count& count = lacks_.Add({facts.Platform(), report.build, name, report.outcome}, 1);
  if (count.frames != 1) return;
  const ModuleFacts::Fact fact = facts.Of(name);
  count.bundle = fact.bundle;
  count.owner = fact.owner;
  if (report.error == nullptr) return;
  count.reason = report.error->Text();
  count.mayPass = report.outcome == FrameOutcome::UnreadableArchive &&
                  !report.error->Url().Name().View().ends_with(symbol_archive::kSuffix);
}

void Tally::AddFrames(const Tally& other) {
  for (std::size_t i = 0; i < kFrameOutcomes; ++i) frames_[i] += other.frames_[i];
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

std::optional<FrameOutcome> OutcomeOfName(std::string_view name) noexcept {
  const auto* const words = std::ranges::find(kWords, name, &Words::name);
  if (words == kWords.end()) return std::nullopt;
  return static_cast<FrameOutcome>(words - kWords.begin());
}

}  // namespace tarvo::toolkit
