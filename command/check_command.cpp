#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "command/subcommand.h"
#include "json/json_writer.h"
#include "tarvo/format.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/debug_files/served_modules.h"
#include "toolkit/report/report_resolver.h"
#include "toolkit/report/scratch.h"
#include "toolkit/resolve/listing/report_list.h"
#include "toolkit/resolve/running/report_work.h"
#include "toolkit/store/archive_tree.h"
#include "toolkit/store/bundle_check.h"

namespace tarvo::command {
namespace {

constexpr const char* kCheckFooter =
    R"(Of each ARCHIVE every bundle is read as a resolve reads it, and shown with its format,
system, processor and id, with the functions, lines and inlined functions in it, and
what is wrong: no debug information, parts that are missing, another id than the
archive's own list says. Of each REPORT every module that has frames is shown, with the
bundle that serves it, or the reason why none does. An archive serves the modules of
the build that its name says. Of folders all archives and reports below are taken.

Exit status:
  0  all bundles serve, and all modules of the build of an archive
  1  some do not, or could not be read
  2  wrong usage

Example:
  tarvo check archives/R15.6-4213_dsym.zip crash_bugreport.txt
)";

struct CheckOptions {
  std::vector<std::string> files;
  bool isJson = false;
};

std::string Count(const char* name, const std::optional<std::uint64_t>& count) {
  return count ? ", " + std::to_string(*count) + ' ' + name : std::string();
}

std::string Describe(const FileDescription& file) {
  std::string text = file.format + " for " + file.platform;
  for (const SymbolSlice& slice : file.slices)
    text += ' ' + slice.architecture + ", id " + (slice.id.empty() ? "none" : slice.id);
  return text + Count("functions", file.functions) + Count("lines", file.lines) +
         Count("inlined", file.inlined) + (file.split.empty() ? "" : ", split") +
         (file.shared ? ", with a shared part" : "") +
         (file.pdb.empty() ? "" : ", PDB " + file.pdb);
}

DataDictionary DocumentOf(const CheckedBundle& bundle) {
  DataDictionary document;
  document.Set("Bundle", String(bundle.name));
  if (bundle.told) document.Set("Module", String(bundle.told->module));
  if (bundle.description) {
    const FileDescription& file = *bundle.description;
    document.Set("Format", String(file.format));
    document.Set("Platform", String(file.platform));
    DataArray symbols;
    for (const SymbolSlice& slice : file.slices) {
      DataDictionary entry;
      entry.Set("Architecture", String(slice.architecture));
      entry.Set("Id", String(slice.id));
      symbols.Append(std::move(entry));
    }
    document.Set("Symbols", std::move(symbols));
    if (file.functions) document.Set("Functions", *file.functions);
    if (file.lines) document.Set("Lines", *file.lines);
    if (file.inlined) document.Set("Inlined", *file.inlined);
  }
  DataArray problems;
  for (const std::string& problem : bundle.problems) problems.Append(String(problem));
  document.Set("Problems", std::move(problems));
  return document;
}

DataDictionary DocumentOf(const ServedModule& served) {
  DataDictionary document;
  document.Set("Module", String(served.module));
  document.Set("Build", String(served.build));
  document.Set("IsServed", !served.bundle.empty());
  if (served.bundle.empty()) {
    document.Set("Reason", String(served.reason));
    return document;
  }
  document.Set("Archive", String(served.archive));
  document.Set("Bundle", String(served.bundle));
  return document;
}

class Checker {
 public:
  Checker(Host& host, const CheckOptions& options) : host_(host), options_(options) {}

  int Run() {
    std::vector<std::string> reports;
    for (const std::string& file : options_.files) {
      std::error_code error;
      const bool isFolder = std::filesystem::is_directory(file, error);
      if (isFolder) CheckBelow(file);
      if (file.ends_with(".zip") && !isFolder)
        Check(file);
      else
        reports.push_back(file);
    }
    CheckReports(reports);
    if (isGood_ && offered_.empty() && reports_.IsEmpty())
      Failed({}, Error::Plain({},
                              "Nothing to check: found neither archives (*_dsym.zip) nor "
                              "reports (*_bugreport.txt)."));
    if (options_.isJson) PrintDocument();
    return isGood_ ? kDone : kFailed;
  }

 private:
  void CheckBelow(const std::string& folder) {
    ArchiveTree tree({Url::FromSystemPath(folder)});
    for (const std::string& build : tree.Builds())
      for (const std::string& file : tree.FilesOf(build)) Check(file);
  }

  void Check(const std::string& file) {
    const Result<report::Scratch> scratch = report::Scratch::Make();
    const auto archive = scratch
                             ? CheckArchive(host_.Services(), file, scratch->Path() + "/archive")
                             : Result<CheckedArchive>(scratch.GetError());
    if (!archive) return Failed(file, archive.GetError());
    offered_.push_back({file, archive->manifest, archive->isTold});
    if (!options_.isJson)
      std::printf("%s: %zu bundle%s\n", SafeText(file).c_str(), archive->bundles.size(),
                  archive->bundles.size() == 1 ? "" : "s");
    DataArray bundles;
    for (const CheckedBundle& bundle : archive->bundles) {
      isGood_ = isGood_ && bundle.problems.empty();
      if (!options_.isJson) Print(bundle);
      bundles.Append(DocumentOf(bundle));
    }
    DataDictionary document;
    document.Set("Archive", String(file));
    document.Set("Bundles", std::move(bundles));
    archives_.Append(std::move(document));
  }

  static void Print(const CheckedBundle& bundle) {
    std::printf("  %s%s\n", SafeText(bundle.name).c_str(),
                bundle.description ? (": " + SafeText(Describe(*bundle.description))).c_str() : "");
    for (const std::string& problem : bundle.problems)
      std::printf("    wrong: %s\n", SafeText(problem).c_str());
  }

  void CheckReports(const std::vector<std::string>& paths) {
    const Result<report::Scratch> scratch = report::Scratch::Make();
    const Url nothing = Url::FromSystemPath(scratch ? scratch->Path() : "");
    auto resolver = scratch ? report::ReportResolver::Make(host_.Services(),
                                                           {.archives = nothing, .cache = nothing},
                                                           report::Documents::Left)
                            : Result<report::ReportResolver>(scratch.GetError());
    if (!resolver) return Failed({}, resolver.GetError());
    ReportList list = ListReports(host_.Services(), paths, {.hasPlaces = false});
    for (const Failure& failure : list.failures) Failed(failure.file, failure.reason);
    for (const Report& report : list.reports) CheckReport(*resolver, report);
  }

  /// The report is read as a resolve reads it, with nothing to resolve it with.
  void CheckReport(report::ReportResolver& resolver, const Report& report) {
    ReportWork work;
    work.onResolved = [&](DataDictionary& crashLog) {
      Serve(report, crashLog);
      return false;
    };
    const ReportWorkScope scope(work);
    const auto read = resolver.Resolve(report.file, report.place, report.needsCopy);
    if (!read) Failed(report.file, read.GetError().Text());
  }

  void Serve(const Report& report, const DataDictionary& crashLog) {
    if (!options_.isJson) std::printf("%s:\n", SafeText(report.file.SystemPath()).c_str());
    DataArray modules;
    for (const ServedModule& served : ModulesServed(crashLog, offered_)) {
      isGood_ = isGood_ && (!served.bundle.empty() || !served.isExpected);
      if (!options_.isJson) Print(served);
      modules.Append(DocumentOf(served));
    }
    DataDictionary document;
    document.Set("Report", report.file.Text());
    document.Set("Modules", std::move(modules));
    reports_.Append(std::move(document));
  }

  void Print(const ServedModule& served) const {
    std::string answer = "no: " + served.reason;
    if (!served.bundle.empty()) {
      answer = "yes, " + served.bundle;
      if (offered_.size() > 1) answer += " in " + served.archive;
    }
    std::printf("  %s: %s\n", SafeText(served.module).c_str(), SafeText(answer).c_str());
  }

  /// One of them ends nothing: what else there is is looked at.
  void Failed(const Url& file, const String& reason) {
    Failed(file.SystemPath().ToStdString(), Error::Plain({}, Format("@: @", file, reason)));
  }
  void Failed(const std::string& file, const Error& error) {
    isGood_ = false;
    Fail(error);
    DataDictionary document;
    document.Set("File", String(file));
    document.Set("Error", error.Text());
    failures_.Append(std::move(document));
  }

  void PrintDocument() {
    DataDictionary document;
    document.Set("IsGood", isGood_);
    document.Set("Archives", std::move(archives_));
    document.Set("Reports", std::move(reports_));
    document.Set("Failures", std::move(failures_));
    std::fputs(JsonDocument(document).c_str(), stdout);
  }

  Host& host_;
  const CheckOptions& options_;
  DataArray archives_;
  std::vector<OfferedArchive> offered_;
  DataArray reports_;
  DataArray failures_;
  bool isGood_ = true;
};

}  // namespace

void FillCheckCommand(Command& check, Context& context) {
  check.SetFooter(kCheckFooter);
  auto options = std::make_shared<CheckOptions>();
  check.AddFlag("--json", options->isJson, "Print a document for programs");
  check.AddOption("FILE", options->files, "Archives (*.zip), crash reports; folders of them")
      .Required();
  check.OnNamed([&context, options] {
    context.action = [&context, options] {
      context.host.components.push_back(ReportWorkComponent());
      context.host.arguments.insert(context.host.arguments.begin(),
                                    "--g_crashlogResolveDiagnosticOutput=0");
      return WithHost(context, [options](Host& host) { return Checker(host, *options).Run(); });
    };
  });
}

}  // namespace tarvo::command
