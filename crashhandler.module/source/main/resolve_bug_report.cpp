#include "main/resolve_bug_report.h"

#include <new>
#include <utility>

#include "connection.h"
#include "crashlog/crash_log.h"
#include "crashlog/writing/crash_log_writer.h"
#include "main/configuration.h"
#include "main/main.h"
#include "tarvo/crash_report.h"
#include "tarvo/format.h"
#include "tarvo/resolve_observer.h"

namespace tarvo::crashhandler {
namespace {

/// `given` or, where it is empty, the directory in the configuration entry `name`.
Result<Url> DirectoryOr(const Url& given, const String& configured, std::string_view name) {
  if (!given.IsEmpty()) return given;
  Result<Url> directory = Url::FromText(configured);
  if (directory && directory->IsEmpty())
    return Error::IllegalState(kMainSource.Here(), Format("@ is not defined.", name));
  return directory;
}

Result<void> WriteSourceCopy(const DataDictionary& crashLog, const Url& copy) {
  Result<Ref<OutputFile>> file = g_tarvo.framework->Files().Create(copy);
  if (!file) return file.GetError();
  if (Result<void> written = WriteCrashLog(crashLog, **file); !written) return written;
  return (*file)->Commit();
}

Result<void> WriteOutcome(const DataDictionary& crashLog, const Url& report) {
  const Result<Url> document = report.WithSuffix(crash_report::kDocumentSuffix);
  if (!document) return document.GetError();
  Result<void> written = g_tarvo.framework->DataFormats().WriteJson(crashLog, *document);
  if (!written || report.Suffix() == crash_report::kCopySuffix) return written;
  const Result<Url> copy = report.WithSuffix(crash_report::kCopySuffix);
  if (!copy) return copy.GetError();
  return WriteSourceCopy(crashLog, *copy);
}

}  // namespace

Result<void> ResolveBugReport(const Url& crashLog, const Url& symbolArchiveDirectory,
                              const Url& symbolTemporaryDirectory) try {
  const Result<Url> archives =
      DirectoryOr(symbolArchiveDirectory, g_symbolArchiveDirectory, "g_symbolArchiveDirectory");
  if (!archives) return archives.GetError();
  const Result<Url> temporary = DirectoryOr(symbolTemporaryDirectory, g_symbolTemporaryDirectory,
                                            "g_symbolTemporaryDirectory");
  if (!temporary) return temporary.GetError();
  const Result<Ref<ResolveObserver>> observer = Bind<ResolveObserver>(*g_tarvo.framework);
  const bool salvages = observer && (*observer)->Salvages();
  Result<String> text = CrashLog::ReadBugReport(crashLog);
  if (!text) return text.GetError();
  if (observer) (*observer)->TextRead(*text);
  Result<DataDictionary> parsed =
      salvages ? CrashLog::SalvageText(*std::move(text)) : CrashLog::ParseText(*std::move(text));
  if (!parsed) return parsed.GetError();
  if (observer) (*observer)->ReportRead(*parsed);
  CrashLog log(*std::move(parsed));
  if (Result<void> resolved = log.Resolve(*archives, *temporary); !resolved) return resolved;
  const bool isWritten = !observer || (*observer)->ReportResolved(log.Data());
  return isWritten ? WriteOutcome(log.Data(), crashLog) : Result<void>();
} catch (const std::bad_alloc&) {
  return Error::OutOfMemory(kMainSource.Here());
}

}  // namespace tarvo::crashhandler
