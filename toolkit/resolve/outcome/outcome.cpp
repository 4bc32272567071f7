#include "toolkit/resolve/outcome/outcome.h"

#include <utility>

#include "tarvo/crash_report.h"

namespace tarvo::toolkit {

namespace property = crash_report::property;

namespace {

DataDictionary ReportEntries(const Url& file, const ReportIdentity& identity) {
  DataDictionary outcome;
  outcome.Set(String(property::kOutcomeReport), file.Text());
  if (identity.hash.empty()) return outcome;
  outcome.Set(String(property::kOutcomeSize), identity.size);
  outcome.Set(String(property::kOutcomeTime), String(identity.time));
  outcome.Set(String(property::kOutcomeHash), String(identity.hash));
  return outcome;
}

DataDictionary ArchiveEntry(const String& build) {
  DataDictionary entry;
  entry.Set(String(property::kBuild), build);
  return entry;
}

}  // namespace

DataDictionary OutcomeOf(const Url& file, const ReportIdentity& identity,
                         const std::set<String>& builds, ArchiveTree& archives) {
  DataDictionary outcome = ReportEntries(file, identity);
  DataArray entries;
  for (const String& build : builds) {
    const auto found = archives.Of(build.View());
    for (const ArchiveState& archive : found) {
      DataDictionary entry = ArchiveEntry(build);
      entry.Set(String(property::kOutcomeFile), String(archive.file));
      entry.Set(String(property::kOutcomeIdentity), String(archive.identity));
      entries.Append(std::move(entry));
    }
    if (!found.empty()) continue;
    DataDictionary entry = ArchiveEntry(build);
    entry.Set(String(property::kOutcomeMissing), true);
    entries.Append(std::move(entry));
  }
  outcome.Set(String(property::kOutcomeArchives), std::move(entries));
  return outcome;
}

void NoteMissedIn(DataDictionary& outcome, const std::map<std::string, std::string>& missed) {
  if (missed.empty()) return;
  DataArray entries;
  for (const auto& [place, identity] : missed) {
    DataDictionary entry;
    entry.Set(String(property::kOutcomeFile), String(place));
    if (identity.empty())
      entry.Set(String(property::kOutcomeMissing), true);
    else
      entry.Set(String(property::kOutcomeIdentity), String(identity));
    entries.Append(std::move(entry));
  }
  outcome.Set(String(property::kOutcomeMissed), std::move(entries));
}

DataDictionary FailedOutcome(const Url& file, const ReportIdentity& identity, const String& error) {
  DataDictionary outcome = ReportEntries(file, identity);
  outcome.Set(String(property::kOutcomeError), error);
  return outcome;
}

DataDictionary WithOutcome(DataDictionary outcome, const DataDictionary& crashLog) {
  DataDictionary document;
  document.Reserve(crashLog.Size() + 1);
  document.Set(String(property::kOutcome), std::move(outcome));
  for (const DataDictionary::Entry& entry : crashLog) document.Set(entry.key, entry.value);
  return document;
}

}  // namespace tarvo::toolkit
