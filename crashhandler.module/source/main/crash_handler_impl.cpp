#include "main/crash_handler_impl.h"

#include "connection.h"
#include "linux/linux_crashhandler/capture_services.h"
#include "linux/linux_crashhandler/signals.h"
#include "main/main.h"
#include "main/resolve_bug_report.h"

namespace tarvo::crashhandler {
namespace {

/// What a handler answers that is held past the module's end, when the framework is gone.
Result<void> CheckInitialised(SourceLocation where) {
  if (g_moduleState.isInitialised) return {};
  return Error::IllegalState(where, "The crash handler's module is not initialised.");
}

class CrashHandlerImpl final : public Counted<CrashHandler> {
 public:
  bool SetCallback(CrashCallback callback) override {
    if (!g_moduleState.captureInstalled) return false;
    SetCrashReportCallback(callback);
    return true;
  }

  bool SetSecondaryCallback(CrashCallback callback) override {
    if (!g_moduleState.captureInstalled) return false;
    SetAfterReportCallback(callback);
    return true;
  }

  Result<void> SetCrashDataDirectory(const Url& dataDirectory) override {
    if (Result<void> usable = CheckInitialised(kMainSource.Here()); !usable) return usable;
    if (dataDirectory.IsEmpty())
      return Error::IllegalArgument(kMainSource.Here(), "dataDirectory is empty.");
    FileService& files = g_tarvo.framework->Files();
    if (files.Detect(dataDirectory) == FileKind::Nothing)
      if (Result<void> created = files.CreateDirectory(dataDirectory); !created) return created;
    if (files.Detect(dataDirectory) != FileKind::Directory)
      return Error::IllegalState(kMainSource.Here(), "Could not create directory.");
    const Ref<Observable> observable = g_moduleState.crashDataDirectory;
    return observable ? observable->Notify(dataDirectory) : Result<void>();
  }

  void DisplayCrashDialog(const String& title, const String& message) override {
    if (g_moduleState.isInitialised) DisplayCrashHandlerDialog(title, message);
  }

  Result<void> GetProcessModules(std::vector<LoadedModule>& modules) override {
    if (Result<void> usable = CheckInitialised(kMainSource.Here()); !usable) return usable;
    if (!EnumerateProcessModules(modules)) return Error::OutOfMemory(kMainSource.Here());
    return {};
  }

  Result<void> ResolveBugReport(const Url& crashLog, const Url& symbolArchiveDirectory,
                                const Url& symbolTemporaryDirectory) override {
    if (Result<void> usable = CheckInitialised(kMainSource.Here()); !usable) return usable;
    return crashhandler::ResolveBugReport(crashLog, symbolArchiveDirectory,
                                          symbolTemporaryDirectory);
  }

  Ref<Observable> ObservableCrashDataDirectory() override {
    return g_moduleState.crashDataDirectory;
  }
};

}  // namespace

Ref<CrashHandler> CreateCrashHandlerImpl() { return Make<CrashHandlerImpl>(); }

}  // namespace tarvo::crashhandler
