#include "main/crash_log_resolve_execution.h"

#include <cstdint>
#include <new>
#include <utility>

#include "connection.h"
#include "main/configuration.h"
#include "main/main.h"
#include "tarvo/crash_report.h"
#include "tarvo/crashhandler.h"
#include "tarvo/format.h"

namespace tarvo::crashhandler {
namespace {

void Diagnose(SourceLocation where, std::string_view text) {
  g_tarvo.framework->Output().Diagnostic(where, text);
}

/// Walks a tree of reports. What goes wrong with one of them, or below the top directory, is said
/// and the walk goes on.
class Walk {
 public:
  explicit Walk(Ref<CrashHandler> handler) : handler_(std::move(handler)) {}

  Result<void> Directory(const Url& directory) {
    Result<Ref<BrowseIterator>> entries = g_tarvo.framework->Files().Browse(directory);
    if (!entries) return entries.GetError();
    DirectoryEntry entry;
    for (;;) {
      const Result<bool> isThere = (*entries)->Next(entry);
      if (!isThere) return isThere.GetError();
      if (!*isThere) return {};
      Visit(entry);
    }
  }

  void SayWhatWasDone() const {
    Diagnose(kMainSource.Here(), Format("Reports: @ found, @ resolved, @ failed, @ skipped", found_,
                                        resolved_, failed_, found_ - resolved_ - failed_));
  }

 private:
  void Visit(const DirectoryEntry& entry) try {
    if ((entry.attributes & kSkippedAttribute) != 0) return;
    if ((entry.attributes & kDirectoryAttribute) != 0) {
      if (const Result<void> walked = Directory(entry.url); !walked)
        Diagnose(kMainSource.Here(), Format("@", walked.GetError()));
    } else if (crash_report::IsReportName(entry.name)) {
      ++found_;
      Resolve(entry.url);
    }
  } catch (const std::bad_alloc&) {
    Diagnose(kMainSource.Here(),
             "There was no memory for a report or directory; the walk goes on.");
  }

  void Resolve(const Url& report) {
    const Result<Url> archives = Url::FromText(g_symbolArchiveDirectory);
    const Result<Url> temporary = Url::FromText(g_symbolTemporaryDirectory);
    if (!archives || !temporary) {
      const bool isArchives = !archives;
      return Diagnose(kMainSource.Here(),
                      Format("Skipped, as @ cannot be used: @ (@)",
                             isArchives ? "g_symbolArchiveDirectory" : "g_symbolTemporaryDirectory",
                             (isArchives ? archives : temporary).GetError(), report));
    }
    const Result<void> resolved = handler_->ResolveBugReport(report, *archives, *temporary);
    ++(resolved ? resolved_ : failed_);
    if (!resolved) Diagnose(kMainSource.Here(), Format("@ (@)", resolved.GetError(), report));
  }

  Ref<CrashHandler> handler_;
  std::uint64_t found_ = 0;
  std::uint64_t resolved_ = 0;
  std::uint64_t failed_ = 0;
};

class CrashLogResolveExecution final : public Counted<Job> {
 public:
  Result<void> Run() override {
    if (g_crashlogDirectory.IsEmpty()) return {};
    const Result<Url> directory = Url::FromText(g_crashlogDirectory);
    if (!directory) return directory.GetError();
    Result<Ref<CrashHandler>> handler = Bind<CrashHandler>(*g_tarvo.framework);
    if (!handler) return handler.GetError();
    Walk walk(*std::move(handler));
    Result<void> walked = walk.Directory(*directory);
    walk.SayWhatWasDone();
    return walked;
  }
};

}  // namespace

Ref<Job> CreateCrashLogResolveExecution() { return Make<CrashLogResolveExecution>(); }

}  // namespace tarvo::crashhandler
