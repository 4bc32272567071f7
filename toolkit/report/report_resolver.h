#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "tarvo/crashhandler.h"
#include "tarvo/framework.h"
#include "tarvo/report/resolve.h"
#include "toolkit/report/reading.h"
#include "toolkit/report/scratch.h"

namespace tarvo::report {

/// Whether what comes of a report is put beside it; where not, the ResolveObserver has taken it
/// (ReportResolved).
enum class Documents : bool { Left, Written };

/// Resolves any number of reports, each as `Resolve` does. Copies are made in a directory of its
/// own. All operations
/// from any thread.
class ReportResolver {
 public:
  /// An error when there is no crash handler.
  static Result<ReportResolver> Make(Framework& framework, ResolveOptions options,
                                     Documents documents = Documents::Written);

  /// How the report was damaged, if it was, and what could be read of it is resolved. `needsCopy`:
  /// it is of this project's own capture, or not what its file's bytes are (report_text.h). What
  /// comes of it is put beside `place`, the report itself or where it would be; that directory is
  /// made where it is missing.
  [[nodiscard]] Result<ReportDamage> Resolve(const Url& report, const Url& place, bool needsCopy);

  /// Whether such a report is resolved by a copy with another text than its file's.
  [[nodiscard]] bool MakesCopy(bool needsCopy) const noexcept {
    return needsCopy || options_.adjustment == ReturnAddressAdjustment::AllReports;
  }

 private:
  ReportResolver(Framework& framework, ResolveOptions options, Documents documents,
                 Ref<CrashHandler> handler);
  Result<void> MakeCopy(const Url& report, const Url& copy, Reading& reading);
  Result<void> ResolveCopy(const Url& copy, const Url& place);
  Result<void> Write(std::string_view text, const Url& file);
  Result<void> Publish(const Url& from, const Url& to);

  Framework& framework_;
  ResolveOptions options_;
  Documents documents_;
  Ref<CrashHandler> handler_;
  // Shared, so that a resolver can be moved.
  std::unique_ptr<LateScratch> scratch_ = std::make_unique<LateScratch>();  ///< for the copies
  std::unique_ptr<std::atomic<std::size_t>> copies_ = std::make_unique<std::atomic<std::size_t>>(0);
};

/// Makes the cache where it is missing. An error when that fails, or the archives are no directory.
[[nodiscard]] Result<void> PrepareDirectories(FileService& files, const ResolveOptions& options);

}  // namespace tarvo::report
