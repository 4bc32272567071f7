#pragma once

#include <climits>

namespace tarvo {

/// What stands in a template in the place of the process id.
inline constexpr char kProcessIdMark = '\x01';

/// The report's path but for the process id, and where its file is put. Empty and -1 without a
/// pattern. Written before a crash.
extern char g_reportTemplate[PATH_MAX];
extern int g_reportDescriptor;

}  // namespace tarvo
