#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>

#include "command/output_width.h"
#include "command/subcommand.h"
#include "toolkit/triage/triage_library.h"

namespace tarvo::command {
namespace {

/// The exit status of --fail-on-new when there was something new.
constexpr int kFoundNew = 3;

constexpr const char* kTriageFooter =
    R"(PATH is what `tarvo resolve` leaves: a resolved crash log (*.resolved.json), a
directory of them, or a file of --results. Damaged logs are named and skipped.

Reports are of one group when the same function crashed in the same way. The
function is the first one of the crashed thread's stack that is of the program
itself: what raises errors, the standard library, memory and string functions are
passed over; offsets, template arguments, parameters and whatever differs between
compilers is no part of its name. Reports of a group whose first three functions
are the same are a variant.

With --database the groups are those of all reports that were ever added; a report
counts once. A report that is read again after its symbols have come moves to its
new group, which keeps the old id as an alias.

Marks: "new", with --database: of groups that it did not have before this run; else
of groups that occur in the newest of several builds only. "back": in the newest
build again, after one without. "rising": more than twice as often in the last
seven days as in the seven before.

The shared options are those of `tarvo --help`.

Exit status:
  0  done
  1  no log could be read, or an output or the database could not be written
  2  wrong usage, or the configuration is not as it should be
  3  with --fail-on-new: a group is not yet in the database. It is added.

Examples:
  tarvo triage reports
  tarvo triage results.jsonl --database crashes.db --json groups.json --page crashes.html
  tarvo triage nightly --database crashes.db --fail-on-new --top 5
)";

struct TriageCommandOptions {
  std::vector<std::string> paths;
  std::string database;
  std::string json;
  std::string page;
  std::size_t top = 20;
  std::size_t jobs = std::max(1U, std::thread::hardware_concurrency());
  bool failsOnNew = false;
};

/// A line that is written over, on a terminal; none elsewhere.
class ReadingProgress {
 public:
  ReadingProgress() : isShown_(isatty(STDERR_FILENO) == 1) {}
  ~ReadingProgress() {
    if (isShown_) std::fputs("\r\x1b[K", stderr);
  }
  ReadingProgress(const ReadingProgress&) = delete;
  ReadingProgress& operator=(const ReadingProgress&) = delete;

  void Show(std::size_t done) const {
    if (isShown_) std::fprintf(stderr, "\r%zu crash logs read\x1b[K", done);
  }

 private:
  bool isShown_;
};

Result<TriageResult> RunWithProgress(const TriageLibrary& library,
                                     const TriageCommandOptions& options) {
  const ReadingProgress progress;
  return library.run({.paths = options.paths,
                      .database = options.database,
                      .threads = options.jobs,
                      .onProgress = [&](std::size_t done) { progress.Show(done); }});
}

Result<void> WritePage(FileService& files, const TriageLibrary& library, const TriageResult& result,
                       const TriageCommandOptions& options) {
  const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  const std::string document = Url::FromSystemPath(options.json).Name().ToStdString();
  const Result<Ref<OutputFile>> file = files.Create(Url::FromSystemPath(options.page));
  if (!file) return file.GetError();
  if (auto written = (*file)->Write(library.page(result, document, now)); !written) return written;
  return (*file)->Commit();
}

Result<void> WriteOutputs(Framework& framework, const TriageLibrary& library,
                          const TriageResult& result, const TriageCommandOptions& options) {
  if (!options.json.empty()) {
    const Url file = Url::FromSystemPath(options.json);
    if (auto written = framework.DataFormats().WriteJson(library.document(result), file); !written)
      return written;
  }
  return options.page.empty() ? Result<void>()
                              : WritePage(framework.Files(), library, result, options);
}

int Triage(Host& host, const TriageCommandOptions& options) {
  const auto library = TriageLibrary::Load();
  if (!library) return Fail(library.GetError());
  const Result<TriageResult> result = RunWithProgress(**library, options);
  if (!result) return Fail(result.GetError());
  std::fputs((*library)->table(*result, {.top = options.top, .width = OutputWidth()}).c_str(),
             stdout);
  if (const auto written = WriteOutputs(host.Services(), **library, *result, options); !written)
    return Fail(written.GetError());
  const bool hasNew = std::ranges::any_of(result->groups, &TriageGroup::isNotStored);
  if (options.failsOnNew && hasNew) return kFoundNew;
  return result->logsRead == 0 && !result->skipped.empty() ? kFailed : kDone;
}

void AddOptions(Command& triage, TriageCommandOptions& options) {
  triage.AddOption("PATH", options.paths,
                   "Resolved crash logs, directories of them, files\nof results");
  triage
      .AddOption("--database", options.database,
                 "Keep all reports in this SQLite database; made\nwhere missing")
      .Named("FILE");
  triage.AddOption("--json", options.json, "Write the groups to FILE, as JSON").Named("FILE");
  triage
      .AddOption("--page", options.page,
                 "Write a page to FILE: one HTML file that any\nbrowser shows, with nothing else "
                 "and offline")
      .Named("FILE");
  triage.AddOption("--top", options.top, "List so many groups; 0: all")
      .Named("N")
      .Within(0, 1'000'000)
      .ShowDefault();
  triage.AddOption("--jobs", options.jobs, "Logs to read at once. Default: one for each\ncore")
      .Named("N")
      .Within(1, 256);
  triage.AddFlag("--fail-on-new", options.failsOnNew,
                 "Exit with status 3 when a group is not yet in\nthe database");
}

std::string Check(const TriageCommandOptions& options) {
  if (options.failsOnNew && options.database.empty())
    return "--fail-on-new requires --database, which tells what is new";
  if (options.paths.empty() && options.database.empty()) return "PATH is required";
  return {};
}

}  // namespace

void FillTriageCommand(Command& triage, Context& context) {
  triage.SetFooter(kTriageFooter);
  auto options = std::make_shared<TriageCommandOptions>();
  AddOptions(triage, *options);
  triage.OnNamed(
      [&context, options] {
        context.action = [&context, options] {
          return WithHost(context, [options](Host& host) { return Triage(host, *options); });
        };
      },
      [options] { return Check(*options); });
}

}  // namespace tarvo::command
