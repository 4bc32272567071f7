#pragma once

#include "tarvo/data_dictionary.h"
#include "toolkit/resolve/summary/lacks.h"

/// What one report lacks, in its document: an entry of "Outcome" (tarvo/crash_report.h), so that
/// later runs that leave the report alone can still ask for its symbols.
namespace tarvo::toolkit {

/// At most so many modules of a report are noted, those of most frames, and of texts so many bytes.
inline constexpr std::size_t kMostNotedLacks = 100;
inline constexpr std::size_t kLongestNotedText = 500;

[[nodiscard]] DataArray LacksDocument(const Lacks& ofReport);

/// Reads them back. What is not as LacksDocument writes it is passed over.
[[nodiscard]] Lacks ReadLacks(const DataArray& document);

}  // namespace tarvo::toolkit
