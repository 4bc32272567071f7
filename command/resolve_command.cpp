#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "command/adjustment_option.h"
#include "command/subcommand.h"
#include "command/symbol_options.h"
#include "tarvo/format.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/cluster/report_list_file.h"
#include "toolkit/cluster/shard_work.h"
#include "toolkit/debug_files/debug_file_source.h"
#include "toolkit/resolve/listing/freshness.h"
#include "toolkit/resolve/listing/report_list.h"
#include "toolkit/resolve/outcome/results_file.h"
#include "toolkit/resolve/run.h"
#include "toolkit/resolve/summary/summary.h"
#include "toolkit/store/archive_cache.h"

namespace tarvo::command {
namespace {

constexpr const char* kResolveFooter =
    R"(Beside each report REPORT.txt it leaves REPORT.resolved.json, which `tarvo show`
prints, and a copy of the report's text, REPORT.source. With --output both go below
another directory, as for reports that nobody may write beside: those of `tarvo
resolve /share --output out` to out/a/b_bugreport.resolved.json for
/share/a/b_bugreport.txt. Of directories every file
below is taken whose name ends in "_bugreport.txt", or in that and ".gz" or ".xz".
UTF-16 is read too.

Each document begins with "Outcome": which file it was made of (Report, Size, Time,
Hash: SHA-256), which archives of symbols were there or missing (Archives: Build, File,
Identity or Missing), and where else symbols were looked for in vain (Missed: File,
Missing or the Identity of what stood there). A report that nothing can be read of has
a document with this alone, and an Error: --missing-only counts it as known to be bad,
until its content changes. With --results that is its line; an interrupted run leaves
no file.

Of a damaged or cut report what can be read is resolved; its document says under
"Damage" what was left out: the line, and what was expected there, and of the last one
whether the report is cut off there.

Symbols of a module are looked for, in this order, in
  1. the archive of its build, BUILD_dsym.zip (`tarvo pack` makes them), and that of the
     application's. Each is unpacked into CACHE/BUILD and used from there, until another
     archive has taken its place;
  2. the debug directories, by the build id that tarvo's own capture writes
     (DIR/.build-id/xx/yyyy.debug);
  3. the module's own file at its path, and what its debug link names;
  4. debuginfod, where DEBUGINFOD_URLS is set: DEBUGINFOD_CACHE_PATH and the other
     variables of its client hold;
  5. the symbol tables of the module's own file: a function's name, without a line.
A file of another build id, system or module is never used; the summary names it. What is read of debug
files is kept as an index, by default in tarvo/symbols in the user's cache directory
(the entry g_symbolIndexDirectory).

Reports of tarvo's own capture are first brought into the form of the others, in a
copy; `tarvo normalize` shows it.

The summary as JSON: "Reports" (Read, Resolved, Failed, Damaged, CutOff, UpToDate,
KnownBad, Kept, NotComeTo), "Frames" (All, and a count for each reason), "Missing" (what to ask
for, a row for each module: Reason, Platform, Build, Archive and Bundle in which it is
expected, Module, Reports and Frames that want it, Found instead, Owner where that is the
System or the CrashHandler, Error; up-to-date reports count too), "Failures" and "KnownBad" (Report, Error),
"Damaged" (Report, Line, Expected, and Cut where the report ends there), "Refused" (symbols that were there and were not used: File, Reason).

Exit status:
  0  every report is resolved, as far as there are symbols
  1  some reports failed; the summary says which and why
  2  wrong usage, or a module or the configuration is not as it should be
  130  interrupted, within a second of Ctrl-C

Example:
  tarvo resolve crash_bugreport.txt
  tarvo resolve reports --archives archives --cache cache --summary summary.json
)";

struct ResolveOptions {
  std::vector<std::string> paths;
  std::string writeList;
  std::string list;
  std::string shard;
  SymbolOptions symbols;
  std::string summary;
  std::string results;
  std::string output;
  bool missingOnly = false;
  bool replacesBetter = false;
  bool isQuiet = false;
};

std::string Places(const Host& host, const SymbolOptions& options) {
  std::string archives;
  for (const Url& directory : ArchiveDirectories(host, options))
    archives += "  " + SafeText(directory.SystemPath()) + ", archives of builds\n";
  if (archives.empty()) archives = "  no archives: --archives is not given\n";
  return options.archivesOnly ? archives : archives + DebugFilePlaces(DebugFiles(options));
}

/// Takes the reports out that need no resolving.
void DropUpToDate(std::vector<Report>& reports, ArchiveTree& archives, bool triesBadAgain,
                  Summary& summary) {
  std::erase_if(reports, [&](const Report& report) {
    const auto made = FindUpToDate(report, archives);
    if (!made) return false;
    if (made->error.empty()) {
      ++summary.upToDate;
      summary.lacks.AddReport(made->lacks.value_or(Lacks()));
    } else if (triesBadAgain) {
      return false;
    } else {
      summary.knownBad.push_back({report.file, String(made->error)});
    }
    return true;
  });
}

/// Resolves, and writes the file of results if one is asked for; not after an interruption, for a
/// file that is there has them all.
Result<void> ResolveInto(Framework& framework, report::ReportResolver& resolver,
                         const std::vector<Report>& reports, const ResolveOptions& options,
                         ArchiveTree& archives, Summary& summary) {
  RunOptions run{.threads = options.symbols.jobs,
                 .isQuiet = options.isQuiet,
                 .replacesBetter = options.replacesBetter,
                 .notesBad = !options.symbols.isStrict};
  if (options.results.empty()) {
    ResolveAll(framework, resolver, reports, archives, run, summary);
    return {};
  }
  Result<ResultsFile> results =
      ResultsFile::Make(framework.Files(), Url::FromSystemPath(options.results), reports.size());
  if (!results) return results.GetError();
  run.results = &*results;
  ResolveAll(framework, resolver, reports, archives, run, summary);
  return summary.untouched == 0 ? results->Commit() : Result<void>();
}

/// The same with a shard of a list: what earlier tasks have left of it is taken up.
Result<void> ResolveShard(Framework& framework, report::ReportResolver& resolver,
                          const std::vector<ListedReport>& list, const ResolveOptions& options,
                          ArchiveTree& archives, Summary& summary) {
  const Shard shard = ShardFromText(options.shard).value_or(Shard());
  auto taken = TakeUpShard(framework.Files(), list, shard, Url::FromSystemPath(options.results));
  if (!taken) return taken.GetError();
  summary.upToDate = taken->reports;
  summary.lacks = std::move(taken->lacks);
  if (!taken->work) return {};
  ShardWork& work = *taken->work;
  const RunOptions run{
      .threads = options.symbols.jobs, .isQuiet = options.isQuiet, .results = &work.results};
  ResolveAll(framework, resolver, work.reports, archives, run, summary);
  return summary.untouched == 0 ? FinishShard(work) : Result<void>();
}

/// Resolves what the command line names: paths, or a list or a part of one.
Result<void> ResolveNamed(Framework& framework, report::ReportResolver& resolver,
                          const ResolveOptions& options, ArchiveTree& archives, Summary& summary) {
  if (!options.list.empty()) {
    const auto listed = ReadReportList(Url::FromSystemPath(options.list));
    if (!listed) return listed.GetError();
    return ResolveShard(framework, resolver, *listed, options, archives, summary);
  }
  ReportList list = ListReports(framework, options.paths,
                                {.threads = options.symbols.jobs,
                                 .mirror = Url::FromSystemPath(options.output),
                                 .hasPlaces = options.results.empty()});
  summary.failures = std::move(list.failures);
  if (options.missingOnly) DropUpToDate(list.reports, archives, options.replacesBetter, summary);
  return ResolveInto(framework, resolver, list.reports, options, archives, summary);
}

int WriteList(Host& host, const ResolveOptions& options) {
  ReportList list = ListReports(host.Services(), options.paths,
                                {.threads = options.symbols.jobs, .hasPlaces = false});
  const auto listed = IdentifyReports(list, options.symbols.jobs);
  for (const Failure& failure : list.failures)
    Fail(Error::Plain({}, Format("@: @", failure.file, failure.reason)));
  const auto written =
      WriteReportList(host.Services().Files(), listed, Url::FromSystemPath(options.writeList));
  if (!written) return Fail(written.GetError());
  if (!options.isQuiet) std::printf("reports listed: %zu\n", listed.size());
  return list.failures.empty() ? kDone : kFailed;
}

/// A report's tree is freed before the next one is read. By default a thread gives that memory back
/// to the kernel each time, which stops the other threads for it, and asks for it again.
void KeepFreedMemory() {
  mallopt(M_TRIM_THRESHOLD, 64 << 20);
  mallopt(M_MMAP_THRESHOLD, 4 << 20);
}

int Resolve(Host& host, const ResolveOptions& options) {
  KeepFreedMemory();
  Framework& framework = host.Services();
  const auto settings = ResolverSettings(host, options.symbols);
  if (!settings) return Fail(settings.GetError(), kWrongUsage);
  const Url output = Url::FromSystemPath(options.output);
  if (!output.IsEmpty())
    if (const auto made = framework.Files().CreateDirectory(output); !made)
      return Fail(made.GetError(), kWrongUsage);
  const bool hasResults = !options.results.empty();
  Result<report::ReportResolver> resolver = report::ReportResolver::Make(
      framework, *settings, hasResults ? report::Documents::Left : report::Documents::Written);
  if (!resolver) return Fail(resolver.GetError());

  Summary summary;
  ArchiveCache cache(ArchiveDirectories(host, options.symbols), settings->cache);
  {
    const ArchivesInUse inUse(framework, cache);
    const auto run = ResolveNamed(framework, *resolver, options, cache.Archives(), summary);
    if (!run) return Fail(run.GetError());
  }
  summary.places = Places(host, options.symbols);
  summary.missing = FindMissing(summary.lacks, cache);
  summary.refused = RefusedDebugFiles();

  if (!options.isQuiet) std::fputs(SummaryText(summary).c_str(), stdout);
  if (options.isQuiet)
    for (const Failure& failure : summary.failures)
      Fail(Error::Plain({}, Format("@: @", failure.file, failure.reason)));
  if (!options.summary.empty()) {
    const auto written = framework.DataFormats().WriteJson(SummaryDocument(summary),
                                                           Url::FromSystemPath(options.summary));
    if (!written) return Fail(written.GetError());
  }
  if (summary.untouched != 0) return kInterruptedStatus;
  return summary.failures.empty() ? kDone : kFailed;
}

/// What cannot be asked for together, or is missing; empty: all is well.
std::string Check(const ResolveOptions& options) {
  if (options.paths.empty() && options.list.empty()) return "PATH is required";
  if (!options.paths.empty() && !options.list.empty()) return "PATH excludes --list";
  if (!options.shard.empty() && options.list.empty())
    return "--shard requires --list, which it is a part of";
  if (!options.list.empty() && !options.output.empty())
    return "--list excludes --output: --results takes all outcomes";
  if (!options.writeList.empty() && !options.output.empty())
    return "--write-list excludes --output: nothing is resolved";
  if (!options.list.empty() && options.results.empty())
    return "--list requires --results, which takes all outcomes";
  return {};
}

void AddListOptions(Command& resolve, ResolveOptions& options) {
  resolve
      .AddOption("--write-list", options.writeList,
                 "Resolve nothing; write a line of JSON for\neach report to FILE, for --list")
      .Named("FILE");
  resolve
      .AddOption("--list", options.list,
                 "The reports that FILE lists, instead of PATH;\nwhat an earlier run that was "
                 "killed has done\nis not done again")
      .Named("FILE");
  resolve
      .AddOption("--shard", options.shard,
                 "Of the list, part I of N equal ones; a\nbuild's reports are in as few parts as "
                 "can be")
      .Named("I/N")
      .Check([](const std::string& text) {
        return ShardFromText(text) ? "" : "found \"" + text + "\", expected I/N, as in 3/10";
      });
}

void AddOptions(Command& resolve, ResolveOptions& options) {
  resolve.AddOption("PATH", options.paths, "Crash reports, and directories of them");
  AddListOptions(resolve, options);
  AddSymbolOptions(resolve, options.symbols);
  const Option missing = resolve.AddFlag(
      "--missing-only", options.missingOnly,
      "Leave reports alone that have not changed since\nthey were resolved, nor have the archives "
      "of their\nbuilds, whatever times the files have, nor the places\nwhere other symbols were "
      "missed");
  const Option output = resolve.AddOption(
      "--output", options.output,
      "Leave what comes of the reports below DIR instead of\nbeside them, each where its report is "
      "below the\ndirectory that all PATHs have in common; made where\nmissing");
  output.Named("DIR");
  resolve.AddFlag("--force", options.replacesBetter,
                  "Replace outcomes of which more frames were\nresolved than now, and try reports "
                  "again that are\nknown to be bad");
  resolve
      .AddOption("--results", options.results,
                 "Write one line of JSON for each report to FILE,\nin the order of the list, and "
                 "nothing beside the\nreports")
      .Named("FILE")
      .Excludes(missing)
      .Excludes(output);
  resolve.AddOption("--summary", options.summary, "Write the summary to FILE, as JSON")
      .Named("FILE");
  resolve.AddFlag("--strict", options.symbols.isStrict,
                  "Let a report fail at the first thing that\ncannot be read, as the job of `tarvo "
                  "run` does");
  resolve.AddFlag("--quiet", options.isQuiet, "Print failures only");
  AddAdjustmentOptions(resolve, options.symbols.adjustment);
}

}  // namespace

void FillResolveCommand(Command& resolve, Context& context) {
  resolve.SetFooter(kResolveFooter);
  auto options = std::make_shared<ResolveOptions>();
  AddOptions(resolve, *options);
  resolve.OnNamed(
      [&context, options] {
        context.action = [&context, options] {
          if (!options->writeList.empty())
            return WithHost(context, [options](Host& host) { return WriteList(host, *options); });
          context.host = ResolvingHost(std::move(context.host), options->symbols);
          return WithHost(context, [options](Host& host) { return Resolve(host, *options); });
        };
      },
      [options] { return Check(*options); });
}

}  // namespace tarvo::command
