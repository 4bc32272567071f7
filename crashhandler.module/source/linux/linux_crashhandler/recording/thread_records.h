#pragma once

namespace tarvo::crashhandler {

/// Makes the crash record's threads of g_threadTable, with names, frames and registers: in the
/// order of the table, without those that have ended. Crashed process.
void RecordThreads();

}  // namespace tarvo::crashhandler
