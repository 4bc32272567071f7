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

}  // namespace

Result<ReportResolver> ReportResolver::Make(Framework& framework, ResolveOptions options,
                                            Documents documents) {
  Result<Ref<CrashHandler>> handler = Bind<CrashHandler>(framework);
  if (!handler) return handler.GetError();
  Result<Scratch> scratch = Scratch::Make();
  if (!scratch) return scratch.GetError();
  return ReportResolver(framework, std::move(options), documents, *std::move(handler),
                        *std::move(scratch));
}

ReportResolver::ReportResolver(Framework& framework, ResolveOptions options, Documents documents,
                               Ref<CrashHandler> handler, Scratch scratch)
    : framework_(framework),
      options_(std::move(options)),
      documents_(documents),
      handler_(std::move(handler)),
      scratch_(std::move(scratch)) {}

Result<bool> ReportResolver::Resolve(const Url& report, bool needsCopy) {
  Reading reading{.salvages = options_.salvages};
  const ReadingScope scope(reading);
  if (!needsCopy && options_.adjustment != ReturnAddressAdjustment::AllReports) {
    const auto resolved = handler_->ResolveBugReport(report, options_.archives, options_.cache);
    return resolved ? Result<bool>(reading.isDamaged) : resolved.GetError();
  }
  const std::string name = std::to_string((*copies_)++) + std::string(crash_report::kNameEnd);
  const Url copy = Url::FromSystemPath(scratch_.Path()).Append(name);
  const Result<void> resolved = ResolveCopy(report, copy, reading);
  for (const Url& file : {copy, DocumentOf(copy), CopyOf(copy)}) Remove(file);
  return resolved ? Result<bool>(reading.isDamaged) : resolved.GetError();
}

Result<void> ReportResolver::ResolveCopy(const Url& report, const Url& copy, Reading& reading) {
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
  if (auto written = Write(normalized.text, copy); !written) return written;
  if (auto resolved = handler_->ResolveBugReport(copy, options_.archives, options_.cache);
      !resolved)
    return resolved;
  // The observer may have kept what is there.
  const bool isWritten = framework_.Files().Detect(DocumentOf(copy)) == FileKind::File;
  if (documents_ == Documents::Left || !isWritten) return {};
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
  const Result<ReportText> read = ReadReportText(framework, report);
  if (!read) return read.GetError();
  Result<ReportResolver> resolver = ReportResolver::Make(framework, options);
  if (!resolver) return resolver.GetError();
  const auto resolved = resolver->Resolve(report, IsOwnReport(read->text) || read->isConverted);
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
