#include "main/crash_log_resolve_execution.h"

#include <utility>

#include "connection.h"
#include "main/configuration.h"
#include "main/main.h"
#include "tarvo/crash_report.h"
#include "tarvo/crashhandler.h"
#include "tarvo/format.h"

namespace tarvo::crashhandler {
namespace {

void Diagnose(const String& text) {
  g_tarvo.framework->Output().Diagnostic(kMainSource.Here(), text);
}

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

 private:
  void Visit(const DirectoryEntry& entry) {
    if ((entry.attributes & kSkippedAttribute) != 0) return;
    if ((entry.attributes & kDirectoryAttribute) != 0) {
      if (const Result<void> walked = Directory(entry.url); !walked)
        Diagnose(Format("@", walked.GetError()));
    } else if (crash_report::IsReportName(entry.name)) {
      Resolve(entry.url);
    }
  }

  void Resolve(const Url& report) {
    const Result<Url> archives = Url::FromText(g_symbolArchiveDirectory);
    const Result<Url> temporary = Url::FromText(g_symbolTemporaryDirectory);
    if (!archives || !temporary) return;
    const Result<void> resolved = handler_->ResolveBugReport(report, *archives, *temporary);
    if (!resolved) Diagnose(Format("@ (@)", resolved.GetError(), report));
  }

  Ref<CrashHandler> handler_;
};

class CrashLogResolveExecution final : public Counted<Job> {
 public:
  Result<void> Run() override {
    if (g_crashlogDirectory.IsEmpty()) return {};
    const Result<Url> directory = Url::FromText(g_crashlogDirectory);
    if (!directory) return directory.GetError();
    Result<Ref<CrashHandler>> handler = Bind<CrashHandler>(*g_tarvo.framework);
    if (!handler) return handler.GetError();
    return Walk(*std::move(handler)).Directory(*directory);
  }
};

}  // namespace

Ref<Job> CreateCrashLogResolveExecution() { return Make<CrashLogResolveExecution>(); }

}  // namespace tarvo::crashhandler
