#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "command/adjustment_option.h"
#include "command/subcommand.h"
#include "tarvo/format.h"
#include "toolkit/resolve/freshness.h"
#include "toolkit/resolve/report_list.h"
#include "toolkit/resolve/run.h"
#include "toolkit/resolve/summary.h"

namespace tarvo::command {
namespace {

constexpr const char* kResolveFooter =
    R"(Beside each report REPORT.txt it leaves REPORT.resolved.json, which `tarvo show`
prints, and a copy of the report's text, REPORT.source. Of directories every file
below is taken whose name ends in "_bugreport.txt", or in that and ".gz" or ".xz".
UTF-16 is read too.

Of a damaged or cut report what can be read is resolved; its document says under
"Damage" what was left out: the line, and what was expected there.

Archives are named BUILD_dsym.zip (`tarvo pack` makes them). Each is unpacked once
into CACHE/BUILD and used from there.

Reports of tarvo's own capture are first brought into the form of the others, in a
copy; `tarvo normalize` shows it.

The summary as JSON: "Reports" (Read, Resolved, Failed, Damaged, UpToDate,
NotComeTo), "Frames" (All, and a count for each reason), "Missing" (what would help most:
Reason, Build, Module, Frames, Error), "Failures" (Report, Error).

Exit status:
  0  every report is resolved, as far as there are symbols
  1  some reports failed; the summary says which and why
  2  wrong usage, or a module or the configuration is not as it should be

Example:
  tarvo resolve reports --archives archives --cache cache --summary summary.json
)";

struct ResolveOptions {
  std::vector<std::string> paths;
  std::string archives;
  std::string cache;
  std::string summary;
  std::size_t jobs = std::max(1U, std::thread::hardware_concurrency());
  bool missingOnly = false;
  bool isStrict = false;
  bool isQuiet = false;
  report::ReturnAddressAdjustment adjustment = report::ReturnAddressAdjustment::OwnReports;
};

/// The directory of an option or, without it, of a configuration entry; empty where neither is set.
Result<Url> Directory(const Host& host, const std::string& option, std::string_view entryName) {
  if (!option.empty()) return Url::FromSystemPath(option);
  for (const ConfigurationEntry& entry : host.ConfigurationEntries())
    if (entry.name == entryName) return Url::FromText(entry.value);
  return Url();
}

Result<report::ResolveOptions> Settings(Host& host, const ResolveOptions& options) {
  constexpr SourceFile kSource{"command/resolve"};
  const Result<Url> archives = Directory(host, options.archives, "g_symbolArchiveDirectory");
  if (!archives) return archives.GetError();
  const Result<Url> cache = Directory(host, options.cache, "g_symbolTemporaryDirectory");
  if (!cache) return cache.GetError();
  if (archives->IsEmpty() || cache->IsEmpty()) {
    return Error::IllegalArgument(
        kSource.Here(), Format("@ is required.", archives->IsEmpty() ? "--archives" : "--cache"));
  }
  const report::ResolveOptions settings{*archives, *cache, options.adjustment, !options.isStrict};
  if (auto prepared = report::PrepareDirectories(host.Services().Files(), settings); !prepared)
    return prepared.GetError();
  return settings;
}

/// Takes the reports out that need no resolving; how many these are.
std::size_t DropUpToDate(std::vector<Report>& reports, const Url& archives) {
  const Freshness freshness(archives);
  return std::erase_if(reports, [&](const Report& r) { return freshness.IsUpToDate(r); });
}

int Resolve(Host& host, const ResolveOptions& options) {
  Framework& framework = host.Services();
  const auto settings = Settings(host, options);
  if (!settings) return Fail(settings.GetError(), kWrongUsage);
  Result<report::ReportResolver> resolver = report::ReportResolver::Make(framework, *settings);
  if (!resolver) return Fail(resolver.GetError());

  ReportList list = ListReports(framework, options.paths);
  Summary summary;
  summary.failures = std::move(list.failures);
  if (options.missingOnly) summary.upToDate = DropUpToDate(list.reports, settings->archives);
  ResolveAll(framework, *resolver, list.reports, options.jobs, options.isQuiet, summary);

  if (!options.isQuiet) std::fputs(SummaryText(summary).c_str(), stdout);
  if (options.isQuiet)
    for (const Failure& failure : summary.failures)
      Fail(Error::Plain({}, Format("@: @", failure.file, failure.reason)));
  if (!options.summary.empty()) {
    const auto written = framework.DataFormats().WriteJson(SummaryDocument(summary),
                                                           Url::FromSystemPath(options.summary));
    if (!written) return Fail(written.GetError());
  }
  return summary.failures.empty() && summary.untouched == 0 ? kDone : kFailed;
}

/// The host, with the frames counted and with the module's own lines off unless they are asked for:
/// the summary says the same in fewer words.
HostOptions ResolvingHost(HostOptions options) {
  options.components.push_back(TallyComponent());
  options.arguments.insert(options.arguments.begin(), "--g_crashlogResolveDiagnosticOutput=0");
  return options;
}

void AddOptions(Command& resolve, ResolveOptions& options) {
  resolve.AddOption("PATH", options.paths, "Crash reports, and directories of them").Required();
  resolve
      .AddOption("--archives", options.archives,
                 "The symbol archives. Default: the entry\ng_symbolArchiveDirectory")
      .Named("DIR");
  resolve
      .AddOption("--cache", options.cache,
                 "Unpacked archives; made where missing.\nDefault: the entry "
                 "g_symbolTemporaryDirectory")
      .Named("DIR");
  resolve
      .AddOption("--jobs", options.jobs, "Reports to resolve at once. Default: one\nfor each core")
      .Named("N")
      .Within(1, 256);
  resolve.AddFlag("--missing-only", options.missingOnly,
                  "Leave reports alone whose outcome is newer\nthan they are and than the archives "
                  "of their\nbuilds");
  resolve.AddOption("--summary", options.summary, "Write the summary to FILE, as JSON")
      .Named("FILE");
  resolve.AddFlag("--strict", options.isStrict,
                  "Let a report fail at the first thing that\ncannot be read, as the job of `tarvo "
                  "run` does");
  resolve.AddFlag("--quiet", options.isQuiet, "Print failures only");
  AddAdjustmentOptions(resolve, options.adjustment);
}

}  // namespace

void AddResolveCommand(Program& program, Context& context) {
  Command resolve =
      program.AddSubcommand("resolve", "Resolve crash reports to function, file and line");
  resolve.SetFooter(kResolveFooter);
  auto options = std::make_shared<ResolveOptions>();
  AddOptions(resolve, *options);
  resolve.OnNamed([&context, options] {
    context.action = [&context, options] {
      context.host = ResolvingHost(std::move(context.host));
      return WithHost(context, [options](Host& host) { return Resolve(host, *options); });
    };
  });
}

}  // namespace tarvo::command
