#pragma once

#include "tarvo/job.h"

namespace tarvo::crashhandler {

/// Makes the job that resolves every crash report below g_crashlogDirectory, one after the other,
/// through the crash-handler interface. Reports are the files whose names end in "_bugreport.txt",
/// in any case of the letters; hidden entries, and links to directories, are passed over.
///
/// The configuration is read when the job runs. An empty g_crashlogDirectory means that there is
/// nothing to do. A report that fails, or a directory below that cannot be listed, gives a
/// diagnostic line and the walk goes on; only the top directory's error is the job's. Where one of
/// the directories' entries names no place, each report is skipped with a line. The last line
/// counts what was found, resolved, failed and skipped.
Ref<Job> CreateCrashLogResolveExecution();

}  // namespace tarvo::crashhandler
