#include "toolkit/resolve/summary/summary.h"

#include <algorithm>
#include <cstdio>

#include "tarvo/format.h"
#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

constexpr std::size_t kShownFailures = 20;
constexpr std::size_t kShownColumns = 200;
constexpr std::size_t kShownReasonColumns = 2000;  // names a file at its start, says why at its end

/// A stranger's text for a line of a few: names have any length.
std::string Shown(std::string_view text) { return Shortened(SafeText(text), kShownColumns); }

std::string Number(std::uint64_t number, std::size_t width = 0) {
  std::string text = std::to_string(number);
  return text.insert(0, width > text.size() ? width - text.size() : 0, ' ');
}

std::string Share(std::uint64_t part, std::uint64_t whole) {
  char text[16];
  std::snprintf(text, sizeof text, "%.1f %%",
                100.0 * static_cast<double>(part) / static_cast<double>(whole));
  return text;
}

std::size_t CutOff(const std::vector<DamagedReport>& reports) {
  return static_cast<std::size_t>(std::ranges::count_if(
      reports, [](const DamagedReport& report) { return report.damage.isCut; }));
}

std::string ReportsLine(const Summary& summary) {
  std::string line = "Reports: " + Number(summary.read) + " read, " + Number(summary.resolved) +
                     " resolved, " + Number(summary.failures.size()) + " failed";
  if (!summary.damaged.empty())
    line += ", " + Number(summary.damaged.size()) + " damaged and resolved in part";
  if (const std::size_t cut = CutOff(summary.damaged); cut != 0)
    line += " (" + Number(cut) + " cut off)";
  if (summary.kept != 0)
    line += ", " + Number(summary.kept) + " left as before, which knew more (--force replaces it)";
  if (summary.upToDate != 0) line += ", " + Number(summary.upToDate) + " up to date";
  if (!summary.knownBad.empty())
    line += ", " + Number(summary.knownBad.size()) + " known to be bad (--force tries them again)";
  if (summary.untouched != 0) line += ", " + Number(summary.untouched) + " not come to";
  return line + "\n";
}

std::string FramesText(const Tally& tally) {
  const std::uint64_t all = tally.AllFrames();
  const std::uint64_t resolved = tally.Frames(FrameOutcome::Resolved);
  if (all == 0) return "Frames:  none\n";
  std::string text = "Frames:  " + Number(all) + ", " + Number(resolved) + " resolved (" +
                     Share(resolved, all) + ")\n";
  for (std::size_t i = 1; i < kFrameOutcomes; ++i) {
    const auto outcome = static_cast<FrameOutcome>(i);
    if (const std::uint64_t frames = tally.Frames(outcome); frames != 0)
      text += Number(frames, 11) + "  " + std::string(OutcomeText(outcome)) + "\n";
  }
  return text;
}

/// Without the file's name, which stands in front of it.
std::string ReasonText(const Failure& failure) {
  std::string reason = failure.reason.ToStdString();
  const std::string name = " \"" + failure.file.Text().ToStdString() + '"';
  if (const std::size_t at = reason.find(name); at != std::string::npos)
    reason.erase(at, name.size());
  return Shortened(SafeText(reason), kShownReasonColumns);
}

std::string FailuresText(const std::vector<Failure>& failures) {
  std::string text = failures.empty() ? "" : "Failed:\n";
  for (std::size_t i = 0; i < std::min(failures.size(), kShownFailures); ++i)
    text += "  " + Shown(failures[i].file.Text()) + ": " + ReasonText(failures[i]) + "\n";
  if (failures.size() > kShownFailures)
    text += "  and " + Number(failures.size() - kShownFailures) + " more\n";
  return text;
}

std::string DamageText(const report::ReportDamage& damage) {
  const std::string line = damage.line == 0 ? "" : "line " + Number(damage.line);
  const std::string expected = Shown(damage.expected);
  if (!damage.isCut) return line + (line.empty() ? "" : ": ") + expected;
  return "cut off" + (line.empty() ? ": " + expected : " in " + line);
}

std::string DamagedText(const std::vector<DamagedReport>& reports) {
  std::string text = reports.empty() ? "" : "Damaged or cut off, and resolved as far as they go:\n";
  for (std::size_t i = 0; i < std::min(reports.size(), kShownFailures); ++i)
    text += "  " + Shown(reports[i].file.Text()) + ": " + DamageText(reports[i].damage) + "\n";
  if (reports.size() > kShownFailures)
    text += "  and " + Number(reports.size() - kShownFailures) + " more\n";
  return text;
}

std::string RefusedText(const std::map<std::string, std::string>& refused) {
  std::string text = refused.empty() ? "" : "Symbols that were there and were not used:\n";
  std::size_t shown = 0;
  for (const auto& [file, reason] : refused) {
    if (++shown > kShownFailures) continue;
    text += "  " + Shown(file) + ": " + Shown(reason) + "\n";
  }
  if (shown > kShownFailures) text += "  and " + Number(shown - kShownFailures) + " more\n";
  return text;
}

/// Where nothing was found for some module.
std::string PlacesText(const Summary& summary) {
  const bool isMissing =
      !summary.missing.builds.empty() ||
      std::ranges::any_of(summary.missing.others, [](const MissingModule& module) {
        return module.first.outcome != FrameOutcome::ModuleNotListed;
      });
  return isMissing && !summary.places.empty() ? "Symbols were looked for in:\n" + summary.places
                                              : "";
}

DataArray FailuresDocument(const std::vector<Failure>& failures) {
  DataArray entries;
  for (const Failure& failure : failures) {
    DataDictionary entry;
    entry.Set("Report", failure.file.Text());
    entry.Set("Error", failure.reason);
    entries.Append(std::move(entry));
  }
  return entries;
}

DataArray DamagedDocument(const std::vector<DamagedReport>& reports) {
  DataArray entries;
  for (const auto& [file, damage] : reports) {
    DataDictionary entry;
    entry.Set("Report", file.Text());
    if (damage.line != 0) entry.Set("Line", damage.line);
    entry.Set("Expected", damage.expected);
    if (damage.isCut) entry.Set("Cut", true);
    entries.Append(std::move(entry));
  }
  return entries;
}

DataDictionary FramesDocument(const Tally& tally) {
  DataDictionary frames;
  frames.Set("All", tally.AllFrames());
  for (std::size_t i = 0; i < kFrameOutcomes; ++i) {
    const auto outcome = static_cast<FrameOutcome>(i);
    frames.Set(String(OutcomeName(outcome)), tally.Frames(outcome));
  }
  return frames;
}

}  // namespace

std::string SummaryText(const Summary& summary) {
  return ReportsLine(summary) + FramesText(summary.tally) + MissingText(summary.missing) +
         RefusedText(summary.refused) + PlacesText(summary) + DamagedText(summary.damaged) +
         FailuresText(summary.failures);
}

DataDictionary SummaryDocument(const Summary& summary) {
  DataDictionary reports;
  reports.Set("Read", std::uint64_t{summary.read});
  reports.Set("Resolved", std::uint64_t{summary.resolved});
  reports.Set("Failed", std::uint64_t{summary.failures.size()});
  reports.Set("Damaged", std::uint64_t{summary.damaged.size()});
  reports.Set("CutOff", std::uint64_t{CutOff(summary.damaged)});
  reports.Set("UpToDate", std::uint64_t{summary.upToDate});
  reports.Set("KnownBad", std::uint64_t{summary.knownBad.size()});
  reports.Set("Kept", std::uint64_t{summary.kept});
  reports.Set("NotComeTo", std::uint64_t{summary.untouched});
  DataDictionary document;
  document.Set("Reports", std::move(reports));
  document.Set("Frames", FramesDocument(summary.tally));
  document.Set("Missing", MissingDocument(summary.missing));
  document.Set("Failures", FailuresDocument(summary.failures));
  document.Set("Damaged", DamagedDocument(summary.damaged));
  document.Set("KnownBad", FailuresDocument(summary.knownBad));
  DataArray refused;
  for (const auto& [file, reason] : summary.refused) {
    DataDictionary entry;
    entry.Set("File", String(file));
    entry.Set("Reason", String(reason));
    refused.Append(std::move(entry));
  }
  document.Set("Refused", std::move(refused));
  return document;
}

}  // namespace tarvo::toolkit
