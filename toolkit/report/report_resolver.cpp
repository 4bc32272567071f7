#include "toolkit/report/report_resolver.h"

#include <filesystem>
#include <new>
#include <system_error>
#include <utility>

#include "tarvo/crash_report.h"
#include "tarvo/format.h"
#include "toolkit/report/normalized_report.h"
#include "toolkit/report/report_text.h"

namespace tarvo::report {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kReportResolver{"command/resolve"};

void Remove(const Url& file) {
  std::error_code missing;
  fs::remove(file.SystemPath().View(), missing);
}

/// A link, for what need not be copied.
Result<void> LinkTo(const Url& report, const Url& link) {
  std::error_code error;
  const fs::path target = fs::absolute(report.SystemPath().View(), error);
  if (!error) fs::create_symlink(target, link.SystemPath().View(), error);
  if (!error) return {};
  return Error::File(kReportResolver.Here(),
                     Format("Could not make \"@\": @", link, error.message()), link);
}

}  // namespace

Result<ReportResolver> ReportResolver::Make(Framework& framework, ResolveOptions options,
                                            Documents documents) {
  Result<Ref<CrashHandler>> handler = Bind<CrashHandler>(framework);
  if (!handler) return handler.GetError();
  return ReportResolver(framework, std::move(options), documents, *std::move(handler));
}

ReportResolver::ReportResolver(Framework& framework, ResolveOptions options, Documents documents,
                               Ref<CrashHandler> handler)
    : framework_(framework),
      options_(std::move(options)),
      documents_(documents),
      handler_(std::move(handler)) {}

Result<ReportDamage> ReportResolver::Resolve(const Url& report, const Url& place, bool needsCopy) {
  Reading reading{.salvages = options_.salvages};
  const ReadingScope scope(reading);
  needsCopy = MakesCopy(needsCopy);
  if (!needsCopy && place == report) {
    const auto resolved = handler_->ResolveBugReport(report, options_.archives, options_.cache);
    return resolved ? Result<ReportDamage>(reading.damage) : resolved.GetError();
  }
  const Result<std::string> directory = scratch_->Path();
  if (!directory) return directory.GetError();
  const std::string name = std::to_string((*copies_)++) + std::string(crash_report::kNameEnd);
  const Url copy = Url::FromSystemPath(*directory).Append(name);
  Result<void> resolved = needsCopy ? MakeCopy(report, copy, reading) : LinkTo(report, copy);
  if (resolved) resolved = ResolveCopy(copy, place);
  for (const Url& file : {copy, DocumentOf(copy), CopyOf(copy)}) Remove(file);
  return resolved ? Result<ReportDamage>(reading.damage) : resolved.GetError();
}

Result<void> ReportResolver::MakeCopy(const Url& report, const Url& copy, Reading& reading) {
  const Result<ReportText> read = ReadReportText(framework_, report);
  if (!read) return read.GetError();
  if (!read->damage.IsEmpty()) {
    reading.packedDamage = Format("Could not unpack all of it: @", read->damage);
    if (!options_.salvages)
      return Error::File(kReportResolver.Here(),
                         Format("Could not unpack \"@\": @", report, read->damage), report);
  }
  const NormalizedReport normalized = Normalize(read->text, options_.adjustment);
  reading.isOwn = IsOwnReport(read->text);
  reading.addedLine = normalized.addedLine;
  return Write(normalized.text, copy);
}

Result<void> ReportResolver::ResolveCopy(const Url& copy, const Url& place) {
  if (auto resolved = handler_->ResolveBugReport(copy, options_.archives, options_.cache);
      !resolved)
    return resolved;
  // The observer may have kept what is there.
  const bool isWritten = framework_.Files().Detect(DocumentOf(copy)) == FileKind::File;
  if (documents_ == Documents::Left || !isWritten) return {};
  if (auto made = framework_.Files().CreateDirectory(place.Parent()); !made) return made;
  if (auto put = Publish(DocumentOf(copy), DocumentOf(place)); !put) return put;
  return Publish(CopyOf(copy), CopyOf(place));
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
  const Result<ReportText> read = ReadReportText(framework, report);
  if (!read) return read.GetError();
  Result<ReportResolver> resolver = ReportResolver::Make(framework, options);
  if (!resolver) return resolver.GetError();
  const auto resolved =
      resolver->Resolve(report, report, IsOwnReport(read->text) || read->isConverted);
  return resolved ? Result<void>() : resolved.GetError();
} catch (const std::bad_alloc&) {
  return Error::OutOfMemory(kReportResolver.Here());
}

Url DocumentOf(const Url& report) {
  return WithoutPacking(report).WithSuffix(crash_report::kDocumentSuffix).ValueOr({});
}
Url CopyOf(const Url& report) {
  return WithoutPacking(report).WithSuffix(crash_report::kCopySuffix).ValueOr({});
}

}  // namespace tarvo::report
