#pragma once

#include <string>

#include "tarvo/crashhandler.h"
#include "tarvo/framework.h"
#include "toolkit/report/normalize.h"
#include "toolkit/resolve/report_list.h"

namespace tarvo::toolkit {

/// Resolves reports one by one, as `CrashHandler::ResolveBugReport` does. A report that has to be
/// normalized first is resolved in a copy, in a directory of its own that is removed at the end;
/// what comes of it is put beside the report. Reports may be resolved in several threads at once.
class ReportResolver {
 public:
  struct Settings {
    Url archives;
    Url cache;
    StepBack stepBack = StepBack::OwnReports;
  };

  /// An error when there is no crash handler, or no directory for the copies.
  static Result<ReportResolver> Make(Framework& framework, Settings settings);
  ~ReportResolver();
  ReportResolver(ReportResolver&& other) noexcept;
  ReportResolver& operator=(ReportResolver&&) = delete;

  /// `number` is another one for each report.
  [[nodiscard]] Result<void> Resolve(const Report& report, std::size_t number);

 private:
  ReportResolver(Framework& framework, Settings settings, Ref<CrashHandler> handler,
                 std::string scratch);
  Result<void> ResolveCopy(const Report& report, const Url& copy);
  Result<void> Write(std::string_view text, const Url& file);
  Result<void> Publish(const Url& from, const Url& to);

  Framework& framework_;
  Settings settings_;
  Ref<CrashHandler> handler_;
  std::string scratch_;  ///< the copies' directory
};

}  // namespace tarvo::toolkit
