#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "command/output_width.h"
#include "command/subcommand.h"
#include "tarvo/format.h"
#include "toolkit/base/regular_file.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/document/crash_document.h"
#include "toolkit/show/printer.h"

namespace tarvo::command {
namespace {

constexpr SourceFile kShowCommand{"command/show_command"};

constexpr const char* kShowFooter =
    R"(FILE is what `tarvo resolve` leaves beside a report: *.resolved.json.

The thread that crashed comes first and as a whole, an arrow at the frame that
crashed; what stands above it is the crash handler at work. Equal frames in a row
are one line with their number behind it. Below the frame that crashed stand the
lines of its source, where that file is on this machine and is the one that was
compiled: it has the checksum that the debug information tells (DWARF 5 of clang,
PDBs) or, where that tells none, has not been changed since the crash, nor since the
module was built where that is here too.

Lines fit the terminal, or COLUMNS; into a pipe or a file nothing is cut. Colours
are for terminals, unless NO_COLOR is set.

Of an abort the arrow stands at the frame that called for it, not in the C library.
What a damaged report did not give stands under "Damaged", or "Cut off" where it ends.

The shared options are those of `tarvo --help`.

Exit status:
  0  done
  1  a file could not be shown, or has no such thread
  2  wrong usage

Examples:
  tarvo show reports/crash_bugreport.resolved.json
  tarvo show --crashed reports/crash_bugreport.resolved.json | mail -s Crash dev@example.com
  tarvo show --all --color always reports/*.resolved.json | less -R
)";

struct Options {
  std::vector<std::string> files;
  std::string colour = "auto";
  bool passesJson = false;
  bool hidesSource = false;
  bool takesAnySource = false;
  bool showsAll = false;
  bool showsCrashOnly = false;
  std::optional<std::uint64_t> thread{};
};

bool IsColoured(const std::string& when) {
  if (when != "auto") return when == "always";
  const char* noColour = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  return (noColour == nullptr || *noColour == '\0') && isatty(STDOUT_FILENO) == 1 &&
         terminal != nullptr && std::string_view(terminal) != "dumb";
}

Result<std::string> ReadDocument(const std::string& path) {
  const auto opened = OpenRegularFile(path);
  if (!opened) return opened.GetError();
  if (opened->size > kMaximumDocumentBytes)
    return Error::IllegalArgument(
        kShowCommand.Here(), Format("\"@\": found @ bytes, expected at most @.", SafeText(path),
                                    opened->size, kMaximumDocumentBytes));
  std::string text(opened->size, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), opened->file.get()));
  if (std::ferror(opened->file.get()) != 0)
    return Error::IllegalState(kShowCommand.Here(),
                               Format("\"@\": it could not be read.", SafeText(path)));
  return text;
}

/// "1, 2, 3": the numbers of the document's threads.
std::string KnownThreads(const CrashDocument& document) {
  constexpr std::size_t kMostNamed = 20;
  std::string text;
  std::size_t named = 0;
  for (const DocumentThread& thread : document.threads) {
    if (!thread.number) continue;
    if (named++ == kMostNamed) return text + ", …";
    text += (text.empty() ? "" : ", ") + std::to_string(*thread.number);
  }
  return text.empty() ? "none" : text;
}

struct LoadedDocument {
  std::string text;
  CrashDocument document;
};

/// A document that is sound and has the thread that is asked for.
Result<LoadedDocument> Load(const std::string& path, std::optional<std::uint64_t> thread) {
  auto text = ReadDocument(path);
  if (!text) return text.GetError();
  auto document = ParseCrashDocument(*text, path);
  if (!document) return document.GetError();
  const auto& threads = document->threads;
  if (thread && std::ranges::find(threads, thread, &DocumentThread::number) == threads.end())
    return Error::IllegalArgument(
        kShowCommand.Here(), Format("\"@\": found no thread @, expected one of: @.", SafeText(path),
                                    *thread, KnownThreads(*document)));
  return LoadedDocument{*std::move(text), *std::move(document)};
}

int ShowFiles(const Options& options) {
  ShowOptions show{.isColoured = IsColoured(options.colour),
                   .showsAll = options.showsAll,
                   .showsSource = !options.hidesSource,
                   .takesAnySource = options.takesAnySource,
                   .thread = options.thread,
                   .showsCrashOnly = options.showsCrashOnly};
  const std::optional<std::size_t> width = OutputWidth();
  show.cuts = width && !options.showsCrashOnly;
  show.width = width.value_or(show.width);
  int status = kDone;
  bool isFirst = true;
  for (const std::string& path : options.files) {
    const auto loaded = Load(path, options.thread);
    if (!loaded) {
      status = Fail(loaded.GetError());
      continue;
    }
    if (options.passesJson) {
      std::fwrite(loaded->text.data(), 1, loaded->text.size(), stdout);
      continue;
    }
    if (options.files.size() > 1)
      std::printf("%s== %s\n", std::exchange(isFirst, false) ? "" : "\n", SafeText(path).c_str());
    PrintCrashDocument(loaded->document, show, stdout);
    if (std::ferror(stdout) != 0) break;
  }
  return status;
}

}  // namespace

void FillShowCommand(Command& show, Context& context) {
  show.SetFooter(kShowFooter);
  auto options = std::make_shared<Options>();
  const Option thread =
      show.AddOption("--thread", options->thread, "Only the thread of this number").Named("N");
  const Option all = show.AddFlag("--all", options->showsAll,
                                  "Every frame, none folded or shortened; registers,\n"
                                  "modules and the report's other sections too");
  show.AddFlag("--crashed", options->showsCrashOnly,
               "Only the thread that crashed, nothing cut: for\na mail")
      .Excludes(thread);
  show.AddFlag("--json", options->passesJson, "Print the file as it is, once it is checked")
      .Excludes(thread)
      .Excludes(all);
  const Option none = show.AddFlag("--no-source", options->hidesSource, "No lines of source files");
  show.AddFlag("--any-source", options->takesAnySource,
               "Lines of source files that are not, or may not\nbe, those that were compiled, too: "
               "without a\nchecksum a checkout seems newer than what it holds")
      .Excludes(none);
  show.AddOption("--color", options->colour, "auto (the default), always or never")
      .Named("WHEN")
      .OneOf({"auto", "always", "never"});
  show.AddOption("FILE", options->files, "Resolved crash logs").Required();
  show.OnNamed([&context, options] { context.action = [options] { return ShowFiles(*options); }; });
}

}  // namespace tarvo::command
