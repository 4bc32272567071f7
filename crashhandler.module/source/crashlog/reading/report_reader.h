#pragma once

#include <optional>

#include "crashlog/reading/damage.h"
#include "tarvo/data_dictionary.h"
#include "tarvo/result.h"
#include "tarvo/string.h"

namespace tarvo::crashhandler {

/// Reads the text of a crash report, of any of the four origins, into a crash log (see
/// tarvo/crash_report.h); texts in it share the report's buffer. A section that comes again
/// replaces the earlier one as a whole. A report without "ComputerInfo" gets one that marks it as a
/// Linux report.
///
/// Any bytes may come: the outcome is one crash log or one error, which names the line (from 1), in
/// time linear in the size and in memory of a small multiple of it (recovery.h). Any thread; no
/// state between calls.
///
/// With OnDamage::GoOn what cannot be read is left out and noted in the crash log, under "Damage";
/// the error is then that of the first word, or the first one where nothing at all could be read.
Result<DataDictionary> ParseReport(String text, OnDamage onDamage = OnDamage::Fail);

/// The error of a text that is no crash report, told by its start; nothing where that may be one.
/// `isWhole`: it is not the start of a longer text.
[[nodiscard]] std::optional<Error> FindWrongStart(String start, bool isWhole);

}  // namespace tarvo::crashhandler
