#pragma once

#include <cstdio>

namespace tarvo::crashhandler {

/// Writes what the program has attached as the section Critical_Log, each line behind
/// crash_report::kAttachedLine; nothing where nothing is attached. Crashed process.
void WriteAttachments(std::FILE* out);

}  // namespace tarvo::crashhandler
