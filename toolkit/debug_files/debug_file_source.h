#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tarvo/framework.h"
#include "tarvo/registration.h"
#include "toolkit/store/archive_cache.h"

namespace tarvo::toolkit {

struct DebugFileOptions {
  std::string build{};        ///< of reports that state none; may be empty
  bool archivesOnly = false;  ///< nothing but archives is looked into

  /// Directories that hold debug files as the distributions lay them out: DIR/.build-id/xx/….debug
  /// and DIR/the/module's/folder/NAME.debug. Those that are not there cost nothing.
  std::vector<std::string> directories{"/usr/lib/debug"};

  /// Told what takes time ("libc.so.6: 3.2 of 10.5 MB from debuginfod"), and an empty text when it
  /// is over. Any thread.
  std::function<void(const std::string& activity)> onActivity{};

  /// Told, for a report one of whose modules has no debug file, of each place where one would have
  /// been taken and of what stood there (IdentifyPlace). By the thread that resolves the report.
  std::function<void(const std::string& place, const std::string& identity)> onMissed{};
};

/// Where symbols are looked for that no archive holds, one line a place, for people.
[[nodiscard]] std::string DebugFilePlaces(const DebugFileOptions& options);

/// The component that finds a module's debug file where no archive has it under the module's name.
/// In this order:
///
/// 0. in the archives of the module's build, of the application's where that is another one or the
///    report states none, and of `build`: by what their manifests say, else by name;
/// 1. by its build id in the directories;
/// 2. the module's own file, at the path that the report gives, with debug information;
/// 3. by the own file's debug link;
/// 4. by its build id from debuginfod, where DEBUGINFOD_URLS is set;
/// 5. the own file's symbol tables, for a function's name.
///
/// Symbols of another system than the report's are refused, and by the manifest those of another
/// module. The build id is what the capture has written. A file of another id is refused, by what
/// opens it. For a module without one the own file counts only where it is not newer than the
/// crash.
///
/// One such component a process: `options` replaces what an earlier call has set.
[[nodiscard]] ComponentRecord DebugFileComponent(DebugFileOptions options);

/// From now on the component looks into `archives` too, by the means of the host's `framework`.
/// They live until this is called with null.
void LookIntoArchives(Framework& framework, ArchiveCache* archives);

/// Debug files that were there and were not used, and places that could not be asked, each with the
/// reason, since the component was made; at most kMostRefusals.
[[nodiscard]] std::map<std::string, std::string> RefusedDebugFiles();
inline constexpr std::size_t kMostRefusals = 1000;

}  // namespace tarvo::toolkit
