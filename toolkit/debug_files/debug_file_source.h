#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tarvo/registration.h"

namespace tarvo::toolkit {

struct DebugFileOptions {
  /// Directories that hold debug files as the distributions lay them out: DIR/.build-id/xx/….debug
  /// and DIR/the/module's/folder/NAME.debug. Those that are not there cost nothing.
  std::vector<std::string> directories{"/usr/lib/debug"};

  /// Told what takes time ("libc.so.6: 3.2 of 10.5 MB from debuginfod"), and an empty text when it
  /// is over. Any thread.
  std::function<void(const std::string& activity)> onActivity{};
};

/// Where symbols are looked for that no archive holds, one line a place, for people.
[[nodiscard]] std::string DebugFilePlaces(const DebugFileOptions& options);

/// The component that finds a module's debug file without an archive. In this order:
///
/// 1. by its build id in the directories;
/// 2. the module's own file, at the path that the report gives, with debug information;
/// 3. by the own file's debug link;
/// 4. by its build id from debuginfod, where DEBUGINFOD_URLS is set;
/// 5. the own file's symbol tables, for a function's name.
///
/// The build id is what the capture has written. A file of another id is refused, by what opens it.
/// For a module without one the own file counts only where it is not newer than the crash.
///
/// One such component a process: `options` replaces what an earlier call has set.
[[nodiscard]] ComponentRecord DebugFileComponent(DebugFileOptions options);

/// Debug files that were there and were not used, and places that could not be asked, each with the
/// reason, since the component was made; at most kMostRefusals.
[[nodiscard]] std::map<std::string, std::string> RefusedDebugFiles();
inline constexpr std::size_t kMostRefusals = 1000;

}  // namespace tarvo::toolkit
