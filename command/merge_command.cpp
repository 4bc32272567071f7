#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "command/subcommand.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/cluster/merge.h"
#include "toolkit/resolve/outcome/results_file.h"
#include "toolkit/triage/triage_library.h"

namespace tarvo::command {
namespace {

constexpr const char* kMergeFooter =
    R"(LIST is what `tarvo resolve --write-list` made, RESULTS what the tasks have left that
worked through it with --list, --shard and --results; a directory stands for the
files in it whose names end in ".jsonl". Each listed report has to have exactly one
outcome; what fails that is named. A report that could not be resolved has an
outcome, which says why. Results that are not there are reports that are missing;
the database gets all others, unless outcomes are doubled or not listed.

Exit status:
  0  every listed report has its outcome
  1  some have none, or two, or results name what is not listed; --missing has a list
     to run again
  2  wrong usage

Example:
  tarvo merge list.jsonl results --database crashes.db --missing again.jsonl
)";

struct MergeOptions {
  std::string list;
  std::vector<std::string> inputs;
  std::string results;
  std::string missing;
  std::string database;
  std::size_t jobs = std::max(1U, std::thread::hardware_concurrency());
};

/// More than so many of a kind are counted only.
constexpr std::size_t kNamed = 10;

/// Files as they are; of directories those with results, sorted.
std::vector<Url> ResultFiles(const std::vector<std::string>& inputs) {
  namespace fs = std::filesystem;
  std::vector<Url> files;
  for (const std::string& input : inputs) {
    std::error_code error;
    if (!fs::is_directory(input, error)) {
      files.push_back(Url::FromSystemPath(input));
      continue;
    }
    std::vector<std::string> names;
    for (auto entry = fs::directory_iterator(input, error);
         !error && entry != fs::directory_iterator(); entry.increment(error))
      if (entry->path().extension() == ".jsonl") names.push_back(entry->path().string());
    std::ranges::sort(names);
    for (const std::string& name : names) files.push_back(Url::FromSystemPath(name));
  }
  return files;
}

void Name(const char* what, const std::vector<std::string>& reports) {
  if (reports.empty()) return;
  std::fprintf(stderr, "%zu %s:\n", reports.size(), what);
  for (std::size_t i = 0; i < std::min(reports.size(), kNamed); ++i)
    std::fprintf(stderr, "  %s\n", SafeText(reports[i]).c_str());
  if (reports.size() > kNamed) std::fprintf(stderr, "  and so on\n");
}

void Tell(const std::vector<ListedReport>& list, const Merge& merge) {
  std::printf("%zu listed reports: %zu resolved, %zu failed, %zu missing\n", list.size(),
              merge.resolved, merge.failed, merge.missing.size());
  if (merge.changed != 0)
    std::printf("%zu were other files when they were resolved than when they were listed\n",
                merge.changed);
  std::vector<std::string> missing;
  for (const std::size_t place : merge.missing)
    missing.push_back(list[place].report.file.Text().ToStdString());
  Name("without an outcome", missing);
  Name("with more than one outcome", merge.doubled);
  Name("outcomes of reports that are not listed", merge.unlisted);
}

Result<void> WriteMissing(FileService& files, const std::vector<ListedReport>& list,
                          const Merge& merge, const std::string& file) {
  std::vector<ListedReport> again;
  for (const std::size_t place : merge.missing) again.push_back(list[place]);
  return WriteReportList(files, again, Url::FromSystemPath(file));
}

/// Adds all outcomes to a database of `tarvo triage`, where a report counts once however often it
/// comes.
Result<void> Feed(const std::vector<Url>& results, const MergeOptions& options) {
  const auto library = TriageLibrary::Load();
  if (!library) return library.GetError();
  TriageOptions triage{.paths = {}, .database = options.database, .threads = options.jobs};
  // In the order of the list, where they stand so: then the database is the same whoever resolved
  // what.
  const std::vector<Url> inOrder = {Url::FromSystemPath(options.results)};
  std::error_code error;
  for (const Url& file : options.results.empty() ? results : inOrder)
    if (std::string path = file.SystemPath().ToStdString(); std::filesystem::exists(path, error))
      triage.paths.push_back(std::move(path));
  const Result<TriageResult> fed = (*library)->run(triage);
  if (!fed) return fed.GetError();
  std::printf("%zu groups in %s\n", fed->groups.size(), SafeText(options.database).c_str());
  return {};
}

int MergeAll(Host& host, const MergeOptions& options) {
  FileService& files = host.Services().Files();
  const auto list = ReadReportList(Url::FromSystemPath(options.list));
  if (!list) return Fail(list.GetError());
  std::optional<ResultsFile> all;
  if (!options.results.empty()) {
    auto made = ResultsFile::Make(files, Url::FromSystemPath(options.results), list->size());
    if (!made) return Fail(made.GetError());
    all = std::move(*made);
  }
  const std::vector<Url> results = ResultFiles(options.inputs);
  const auto merge = MergeResults(*list, results, [&](std::size_t place, std::string_view line) {
    if (all) all->Add(place, std::string(line));
    return Result<void>();
  });
  if (!merge) return Fail(merge.GetError());
  if (all)
    if (auto committed = all->Commit(); !committed) return Fail(committed.GetError());
  if (!options.missing.empty())
    if (auto written = WriteMissing(files, *list, *merge, options.missing); !written)
      return Fail(written.GetError());
  Tell(*list, *merge);
  if (!options.database.empty() && merge->doubled.empty() && merge->unlisted.empty())
    if (auto fed = Feed(results, options); !fed) return Fail(fed.GetError());
  return merge->IsWhole() ? kDone : kFailed;
}

}  // namespace

void FillMergeCommand(Command& merge, Context& context) {
  merge.SetFooter(kMergeFooter);
  auto options = std::make_shared<MergeOptions>();
  merge.AddOption("LIST", options->list, "The list of reports").Required();
  merge.AddOption("RESULTS", options->inputs, "Files of results, and directories of them")
      .Required();
  merge
      .AddOption("--results", options->results,
                 "Write all outcomes to FILE, a line of JSON\nfor each, in the order of the list")
      .Named("FILE");
  merge
      .AddOption("--missing", options->missing,
                 "Write the list of the reports without an\noutcome to FILE; empty where none is")
      .Named("FILE");
  merge
      .AddOption("--database", options->database,
                 "Add the outcomes to this database of\n`tarvo triage`; made where missing")
      .Named("FILE");
  merge
      .AddOption("--jobs", options->jobs,
                 "For --database, lines to read at once. Default:\none for each core")
      .Named("N")
      .Within(1, 256);
  merge.OnNamed([&context, options] {
    context.action = [&context, options] {
      return WithHost(context, [options](Host& host) { return MergeAll(host, *options); });
    };
  });
}

}  // namespace tarvo::command
