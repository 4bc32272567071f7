#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "command/subcommand.h"
#include "tarvo/report/resolve.h"
#include "toolkit/debug_files/debug_file_source.h"
#include "toolkit/store/archive_cache.h"

namespace tarvo::command {

/// How reports are resolved, and with which symbols: what the subcommands that resolve have in
/// common.
struct SymbolOptions {
  SymbolOptions();

  std::vector<std::string> archives{};
  std::string build{};
  std::string cache{};
  std::vector<std::string> debugDirectories{};
  bool archivesOnly = false;
  std::size_t jobs;  ///< one for each core
  bool isStrict = false;
  report::ReturnAddressAdjustment adjustment = report::ReturnAddressAdjustment::OwnReports;
};

/// The options --archives, --build, --cache, --debug-directory, --archives-only and --jobs.
/// `options` lives until the program ends.
void AddSymbolOptions(Command& command, SymbolOptions& options);

/// The directories of archives, the first of which the crash handler's module looks into itself.
[[nodiscard]] std::vector<Url> ArchiveDirectories(const Host& host, const SymbolOptions& options);

/// What a resolver is made with; the cache is there then. An error when a directory is not as it
/// should be.
[[nodiscard]] Result<report::ResolveOptions> ResolverSettings(Host& host,
                                                              const SymbolOptions& options);

/// Where symbols are looked for that no archive holds.
[[nodiscard]] DebugFileOptions DebugFiles(const SymbolOptions& options);

/// The host, with the frames counted and with the module's own lines off unless they are asked for:
/// the summary says the same in fewer words.
[[nodiscard]] HostOptions ResolvingHost(HostOptions host, const SymbolOptions& options);

/// Has the resolver look into `cache`, and into archives that have changed anew, for as long as
/// this lives.
class ArchivesInUse {
 public:
  ArchivesInUse(Framework& framework, ArchiveCache& cache);
  ~ArchivesInUse();
  ArchivesInUse(const ArchivesInUse&) = delete;
  ArchivesInUse& operator=(const ArchivesInUse&) = delete;

 private:
  Framework& framework_;
};

}  // namespace tarvo::command
