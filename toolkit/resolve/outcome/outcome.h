#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>

#include "tarvo/data_dictionary.h"
#include "toolkit/resolve/listing/report_identity.h"
#include "toolkit/store/archive_tree.h"

/// What `tarvo resolve` says of its own work in what it leaves of a report: the entry "Outcome"
/// (tarvo/crash_report.h).
namespace tarvo::toolkit {

/// The report `file`, as it was named, and the archives that were there, or missing, for the builds
/// that its frames asked for.
[[nodiscard]] DataDictionary OutcomeOf(const Url& file, const ReportIdentity& identity,
                                       const std::set<String>& builds, ArchiveTree& archives);

/// Adds to a report's outcome the places outside archives where symbols were missed, with what
/// stood there (IdentifyPlace).
void NoteMissedIn(DataDictionary& outcome, const std::map<std::string, std::string>& missed);

/// Of a report that could not be resolved; `identity` is empty where it could not be read.
[[nodiscard]] DataDictionary FailedOutcome(const Url& file, const ReportIdentity& identity,
                                           const String& error);

/// `crashLog` with `outcome` in front, so that a reader who wants no more need not read it all.
[[nodiscard]] DataDictionary WithOutcome(DataDictionary outcome, const DataDictionary& crashLog);

}  // namespace tarvo::toolkit
