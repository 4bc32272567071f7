#pragma once

#include <vector>

#include "crashlog/symbols/archive_directory.h"
#include "tarvo/data_dictionary.h"
#include "tarvo/resolve_observer.h"
#include "tarvo/result.h"
#include "tarvo/string.h"
#include "tarvo/url.h"

namespace tarvo::crashhandler {

/// A symbol bundle, or why there is none.
struct BundleSearch {
  Result<Url> bundle;
  FrameOutcome outcome = FrameOutcome::Resolved;  ///< the kind of failure
};

/// The cache of unpacked symbols, as one resolve uses it: a directory TEMPORARY/BUILD for each
/// build, with the content of the build's archive. A build whose directory is there is neither
/// searched for nor unpacked again, by any process; it is never removed here.
///
/// This object also remembers each build's outcome, so a report whose archives are missing costs
/// one search for each build. Used by one thread; several objects may work on one cache at once.
class SymbolCache {
 public:
  SymbolCache(Url archiveDirectory, Url temporaryDirectory)
      : archiveDirectory_(std::move(archiveDirectory)),
        temporaryDirectory_(std::move(temporaryDirectory)) {}

  /// The symbol bundle of the module `moduleName` of `build`, unpacked first where need be: the
  /// file or directory MODULE.dsym in the build's directory, or the directory of that name in its
  /// "Release" or "Pebble". The three places are also tried with ".dSYM", as Apple's tools spell
  /// it.
  ///
  /// Unpacking runs as a job of the framework; this thread waits for it, for as long as it takes,
  /// and tells the console about its progress every 10 seconds.
  ///
  /// Errors: the file errors "Could not find symbol archive for BUILD." and "Symbol file PATH for
  /// BUILD not found." with the archive directory as their URL; those of listing directories; those
  /// of the job. Both texts come from a report: one that is no plain file name counts as not found.
  BundleSearch GetSymbolFile(const String& moduleName, const String& build);

 private:
  BundleSearch BuildDirectory(const String& build);
  BundleSearch PrepareBuildDirectory(const String& build);

  ArchiveDirectory archiveDirectory_;
  Url temporaryDirectory_;
  DataDictionary positions_;  ///< of each build met so far in outcomes_
  std::vector<BundleSearch> outcomes_;
};

}  // namespace tarvo::crashhandler
