#include "toolkit/report/report_resolver.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <system_error>
#include <utility>

#include "tarvo/crash_report.h"
#include "tarvo/format.h"
#include "toolkit/report/reading.h"

namespace tarvo::report {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kReportResolver{"command/resolve"};

void Remove(const Url& file) {
  std::error_code missing;
  fs::remove(file.SystemPath().View(), missing);
}

}  // namespace

Result<ReportResolver> ReportResolver::Make(Framework& framework, ResolveOptions options) {
  Result<Ref<CrashHandler>> handler = Bind<CrashHandler>(framework);
  if (!handler) return handler.GetError();
  std::error_code none;
  fs::path directory = fs::temp_directory_path(none);
  if (none) directory = "/tmp";
  std::string scratch = (directory / "tarvo-resolve-XXXXXX").string();
  if (mkdtemp(scratch.data()) == nullptr) {
    return Error::File(
        kReportResolver.Here(),
        Format("Could not make a directory in \"@\": @", directory.string(), std::strerror(errno)),
        Url::FromSystemPath(scratch));
  }
  return ReportResolver(framework, std::move(options), *std::move(handler), std::move(scratch));
}

ReportResolver::ReportResolver(Framework& framework, ResolveOptions options,
                               Ref<CrashHandler> handler, std::string scratch)
    : framework_(framework),
      options_(std::move(options)),
      handler_(std::move(handler)),
      scratch_(std::move(scratch)) {}

ReportResolver::ReportResolver(ReportResolver&& other) noexcept
    : framework_(other.framework_),
      options_(std::move(other.options_)),
      handler_(std::move(other.handler_)),
      scratch_(std::exchange(other.scratch_, {})) {}

ReportResolver::~ReportResolver() {
  std::error_code ignored;
  if (!scratch_.empty()) fs::remove_all(scratch_, ignored);
}

Result<void> ReportResolver::Resolve(const Url& report, bool isOwn) {
  if (!isOwn && options_.adjustment != ReturnAddressAdjustment::AllReports)
    return handler_->ResolveBugReport(report, options_.archives, options_.cache);
  const std::string name = std::to_string(copies_++) + std::string(crash_report::kNameEnd);
  const Url copy = Url::FromSystemPath(scratch_).Append(name);
  Result<void> resolved = ResolveCopy(report, copy);
  for (const Url& file : {copy, DocumentOf(copy), CopyOf(copy)}) Remove(file);
  return resolved;
}

Result<void> ReportResolver::ResolveCopy(const Url& report, const Url& copy) {
  const Result<String> text = framework_.Files().ReadText(report);
  if (!text) return text.GetError();
  if (auto written = Write(Normalized(*text, options_.adjustment), copy); !written) return written;
  Reading reading{.isOwn = IsOwnReport(*text)};
  const ReadingScope scope(reading);
  if (auto resolved = handler_->ResolveBugReport(copy, options_.archives, options_.cache);
      !resolved)
    return resolved;
  if (auto put = Publish(DocumentOf(copy), DocumentOf(report)); !put) return put;
  return Publish(CopyOf(copy), CopyOf(report));
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

Result<void> PrepareDirectories(FileService& files, const ResolveOptions& options) {
  const Url& archives = options.archives;
  if (!archives.IsEmpty() && files.Detect(archives) != FileKind::Directory) {
    return Error::File(kReportResolver.Here(),
                       Format("The archive directory \"@\" is no directory.", archives), archives);
  }
  return options.cache.IsEmpty() ? Result<void>() : files.CreateDirectory(options.cache);
}

Result<void> Resolve(Framework& framework, const Url& report, const ResolveOptions& options) try {
  if (auto prepared = PrepareDirectories(framework.Files(), options); !prepared) return prepared;
  const Result<String> text = framework.Files().ReadText(report);
  if (!text) return text.GetError();
  Result<ReportResolver> resolver = ReportResolver::Make(framework, options);
  return resolver ? resolver->Resolve(report, IsOwnReport(*text)) : resolver.GetError();
} catch (const std::bad_alloc&) {
  return Error::OutOfMemory(kReportResolver.Here());
}

Url DocumentOf(const Url& report) {
  return report.WithSuffix(crash_report::kDocumentSuffix).ValueOr({});
}
Url CopyOf(const Url& report) { return report.WithSuffix(crash_report::kCopySuffix).ValueOr({}); }

}  // namespace tarvo::report
