#pragma once

#include "tarvo/result.h"
#include "tarvo/url.h"

namespace tarvo::crashhandler {

/// Resolves the crash report `crashLog` and writes the outcome beside it: the crash log as a JSON
/// document, with the suffix "resolved.json" in place of the report's own, and, unless the report's
/// suffix is "source" already, a text copy with that suffix. Each appears in one step and replaces
/// an older one.
///
/// An empty directory means the configured one, g_symbolArchiveDirectory or
/// g_symbolTemporaryDirectory; illegal-state errors name the first of these that is not set either.
/// Other errors are those of reading, resolving and writing; before the writing none leaves
/// anything.
///
/// Any thread; different reports at once.
Result<void> ResolveBugReport(const Url& crashLog, const Url& symbolArchiveDirectory,
                              const Url& symbolTemporaryDirectory);

}  // namespace tarvo::crashhandler
