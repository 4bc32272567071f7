#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "command/adjustment_option.h"
#include "command/subcommand.h"
#include "command/symbol_options.h"
#include "toolkit/report/report_resolver.h"
#include "toolkit/triage/triage_library.h"
#include "toolkit/watch/watch.h"

namespace tarvo::command {
namespace {

constexpr const char* kWatchFooter =
    R"(Resolves each report that drops into a directory, or one below, as `tarvo resolve`
does, and with --database groups it as `tarvo triage` does; then prints a line. What is
there at the start comes first; what is up to date is left alone. It runs until SIGINT or
SIGTERM, which let the reports end that are being resolved.

A report is taken once it is whole: its writer has closed it, or it has come by rename,
and the brace that ends a report is there. One without its end is taken when it has not
changed for a while (--patience). On file systems of the network, which tell nothing,
reports are found every --rescan seconds. When archives come or change, the reports of
their builds are resolved again.

Reports are resolved in processes of their own. One that kills its process, or takes more
than --time-limit, is named and left; what may pass, as a full disk or a file that cannot
be read, is tried again, at first after 5 seconds, at last every hour.

Killed at any point and started again it goes on: nothing is lost, and a report is in the
database once. Under systemd it says when it is ready, and gives signs of life; the unit
tarvo-watch.service is an example.

The JSON of a line: Report, Outcome ("Resolved" or "Failed"), Frames, Resolved, Damaged,
Group, Signature, NewGroup (the database had none of it), NotGrouped (why), Error.

Exit status:
  0  ended by SIGINT or SIGTERM
  1  a directory is not there
  2  wrong usage, or a module, the configuration or the database is not as it should be
  130  ended at once, by a second signal

Example:
  tarvo watch /var/spool/crashes --archives /srv/archives --database /var/lib/crashes.db
)";

struct WatchCommandOptions {
  std::vector<std::string> directories;
  SymbolOptions symbols;
  std::string database;
  std::size_t rescan = 30;
  std::size_t patience = 60;
  std::size_t timeLimit = 1800;
  bool isJson = false;
};

using Tell = std::function<void(std::string_view line)>;

int ResolveBatch(Host& host, const WatchCommandOptions& options,
                 const std::vector<BatchReport>& reports, const Tell& tell) {
  const auto settings = ResolverSettings(host, options.symbols);
  if (!settings) return Fail(settings.GetError(), kBatchImpossible);
  const std::vector<Url> archives = ArchiveDirectories(host, options.symbols);
  if (reports.empty())
    for (const Url& directory : archives) tell(directory.SystemPath().ToStdString() + "\n");
  Result<report::ReportResolver> resolver =
      report::ReportResolver::Make(host.Services(), *settings);
  if (!resolver) return Fail(resolver.GetError(), kBatchImpossible);
  const TriageLibrary* triage = nullptr;
  if (!options.database.empty()) {
    const auto library = TriageLibrary::Load();
    if (!library) return Fail(library.GetError(), kBatchImpossible);
    triage = *library;
  }
  ArchiveCache cache(archives, settings->cache);
  const ArchivesInUse inUse(host.Services(), cache);
  const auto done = RunBatch(reports, {.framework = host.Services(),
                                       .resolver = *resolver,
                                       .archives = cache.Archives(),
                                       .triage = triage,
                                       .database = options.database,
                                       .threads = options.symbols.jobs,
                                       .tell = tell});
  return done ? kWatchEnded : Fail(done.GetError(), kBatchImpossible);
}

int WatchDirectories(Context& context, const WatchCommandOptions& options) {
  using std::chrono::seconds;
  const auto work = [&](const std::vector<BatchReport>& reports, const Tell& tell) {
    context.host = ResolvingHost(std::move(context.host), options.symbols);
    return WithHost(context,
                    [&](Host& host) { return ResolveBatch(host, options, reports, tell); });
  };
  return Watch({.directories = options.directories,
                .rescan = seconds(options.rescan),
                .patience = seconds(options.patience),
                .timeLimit = seconds(options.timeLimit),
                .isJson = options.isJson,
                .work = work});
}

void AddOptions(Command& watch, WatchCommandOptions& options) {
  watch.AddOption("DIR", options.directories, "Directories into which reports drop").Required();
  AddSymbolOptions(watch, options.symbols);
  watch
      .AddOption("--database", options.database,
                 "Group the reports in this database of\n`tarvo triage`; made where missing")
      .Named("FILE");
  watch
      .AddOption("--rescan", options.rescan,
                 "Seconds between two looks at everything that is\nthere; more where looking takes "
                 "long")
      .Named("S")
      .Within(1, 86'400)
      .ShowDefault();
  watch
      .AddOption("--patience", options.patience,
                 "Take a report without its end when it has not\nchanged for so many seconds")
      .Named("S")
      .Within(1, 86'400)
      .ShowDefault();
  watch.AddOption("--time-limit", options.timeLimit, "Seconds that a report may take")
      .Named("S")
      .Within(1, 86'400)
      .ShowDefault();
  watch.AddFlag("--json", options.isJson, "Print lines of JSON");
  AddAdjustmentOptions(watch, options.symbols.adjustment);
}

}  // namespace

void FillWatchCommand(Command& watch, Context& context) {
  watch.SetFooter(kWatchFooter);
  auto options = std::make_shared<WatchCommandOptions>();
  AddOptions(watch, *options);
  watch.OnNamed([&context, options] {
    context.action = [&context, options] { return WatchDirectories(context, *options); };
  });
}

}  // namespace tarvo::command
