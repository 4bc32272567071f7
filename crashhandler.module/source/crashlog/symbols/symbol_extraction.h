#pragma once

#include "tarvo/result.h"
#include "tarvo/url.h"

namespace tarvo::crashhandler {

/// Unpacks the zip archive `archive` into `directory` as a job of the framework's default queue and
/// waits for it, for as long as it takes. Every 10 seconds, and at the end of one that took longer,
/// a line on the console tells so, unless diagnostics are off. The job's error is returned as it
/// is.
Result<void> ExtractSymbolArchive(const Url& archive, const Url& directory);

}  // namespace tarvo::crashhandler
