#include "toolkit/resolve/report_resolver.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "tarvo/format.h"
#include "toolkit/resolve/outcome_files.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kSource{"command/resolve"};

void Remove(const Url& file) {
  std::error_code missing;
  fs::remove(file.SystemPath().View(), missing);
}

}  // namespace

Result<ReportResolver> ReportResolver::Make(Framework& framework, Settings settings) {
  Result<Ref<CrashHandler>> handler = Bind<CrashHandler>(framework);
  if (!handler) return handler.GetError();
  std::error_code none;
  fs::path directory = fs::temp_directory_path(none);
  if (none) directory = "/tmp";
  std::string scratch = (directory / "tarvo-resolve-XXXXXX").string();
  if (mkdtemp(scratch.data()) == nullptr) {
    return Error::File(
        kSource.Here(),
        Format("Could not make a directory in \"@\": @", directory.string(), std::strerror(errno)),
        Url::FromSystemPath(scratch));
  }
  return ReportResolver(framework, std::move(settings), *std::move(handler), std::move(scratch));
}

ReportResolver::ReportResolver(Framework& framework, Settings settings, Ref<CrashHandler> handler,
                               std::string scratch)
    : framework_(framework),
      settings_(std::move(settings)),
      handler_(std::move(handler)),
      scratch_(std::move(scratch)) {}

ReportResolver::ReportResolver(ReportResolver&& other) noexcept
    : framework_(other.framework_),
      settings_(std::move(other.settings_)),
      handler_(std::move(other.handler_)),
      scratch_(std::exchange(other.scratch_, {})) {}

ReportResolver::~ReportResolver() {
  std::error_code ignored;
  if (!scratch_.empty()) fs::remove_all(scratch_, ignored);
}

Result<void> ReportResolver::Resolve(const Report& report, std::size_t number) {
  if (!report.isOwn && settings_.stepBack != StepBack::AllReports)
    return handler_->ResolveBugReport(report.file, settings_.archives, settings_.cache);
  const Url copy = Url::FromSystemPath(scratch_).Append(std::to_string(number) + "_bugreport.txt");
  Result<void> resolved = ResolveCopy(report, copy);
  for (const Url& file : {copy, DocumentOf(copy), CopyOf(copy)}) Remove(file);
  return resolved;
}

Result<void> ReportResolver::ResolveCopy(const Report& report, const Url& copy) {
  const Result<String> text = framework_.Files().ReadText(report.file);
  if (!text) return text.GetError();
  if (auto written = Write(Normalized(*text, settings_.stepBack), copy); !written) return written;
  if (auto resolved = handler_->ResolveBugReport(copy, settings_.archives, settings_.cache);
      !resolved)
    return resolved;
  if (auto put = Publish(DocumentOf(copy), DocumentOf(report.file)); !put) return put;
  return Publish(CopyOf(copy), CopyOf(report.file));
}

Result<void> ReportResolver::Write(std::string_view text, const Url& file) {
  const Result<Ref<OutputFile>> output = framework_.Files().Create(file);
  if (!output) return output.GetError();
  if (auto written = (*output)->Write(text); !written) return written;
  return (*output)->Commit();
}

/// By a copy: the directories may be on two file systems.
Result<void> ReportResolver::Publish(const Url& from, const Url& to) {
  const Result<String> content = framework_.Files().ReadText(from);
  return content ? Write(*content, to) : content.GetError();
}

}  // namespace tarvo::toolkit
