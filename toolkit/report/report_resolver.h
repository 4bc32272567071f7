#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>

#include "tarvo/crashhandler.h"
#include "tarvo/framework.h"
#include "tarvo/report/resolve.h"

namespace tarvo::report {

/// Resolves any number of reports, each as `Resolve` does. Copies are made in a directory of its
/// own that is removed at the end. All operations from any thread.
class ReportResolver {
 public:
  /// An error when there is no crash handler, or no directory for the copies.
  static Result<ReportResolver> Make(Framework& framework, ResolveOptions options);
  ~ReportResolver();
  ReportResolver(ReportResolver&& other) noexcept;
  ReportResolver& operator=(ReportResolver&&) = delete;

  /// `isOwn`: see IsOwnReport.
  [[nodiscard]] Result<void> Resolve(const Url& report, bool isOwn);

 private:
  ReportResolver(Framework& framework, ResolveOptions options, Ref<CrashHandler> handler,
                 std::string scratch);
  Result<void> ResolveCopy(const Url& report, const Url& copy);
  Result<void> Write(std::string_view text, const Url& file);
  Result<void> Publish(const Url& from, const Url& to);

  Framework& framework_;
  ResolveOptions options_;
  Ref<CrashHandler> handler_;
  std::string scratch_;  ///< the copies' directory
  std::atomic<std::size_t> copies_ = 0;
};

/// Makes the cache where it is missing. An error when that fails, or the archives are no directory.
[[nodiscard]] Result<void> PrepareDirectories(FileService& files, const ResolveOptions& options);

}  // namespace tarvo::report
