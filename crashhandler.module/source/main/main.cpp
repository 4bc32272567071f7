#include "main/main.h"

#include <cstdio>
#include <cstring>
#include <span>

#include "connection.h"
#include "legacycrashlog/legacycrashlog.h"
#include "legacycrashlog/report_stream.h"
#include "linux/linux_crashhandler/signals.h"
#include "main/configuration.h"
#include "main/crash_handler_impl.h"
#include "main/crash_log_resolve_execution.h"
#include "tarvo/format.h"

namespace tarvo::crashhandler {
namespace {

/// Copies `text` into a buffer of the crash path, zero-terminated. A conversion error when it does
/// not fit or holds a NUL byte, which would cut it short.
Result<void> StoreText(std::string_view what, std::string_view text, std::span<char> buffer) {
  if (text.size() >= buffer.size())
    return Error::Conversion(
        kMainSource.Here(),
        Format("The @ has @ bytes; at most @ are possible.", what, text.size(), buffer.size() - 1));
  if (text.find('\0') != std::string_view::npos)
    return Error::Conversion(kMainSource.Here(), Format("The @ holds a NUL byte.", what));
  std::memcpy(buffer.data(), text.data(), text.size());
  buffer[text.size()] = '\0';
  return {};
}

/// A line's end in it would end the report's line, and what follows would be read as another one.
Result<void> StoreBuildIdentifier() {
  constexpr std::string_view kWhat = "build identifier g_UnitTests_Id";
  const Result<String> configured =
      g_tarvo.framework->Configuration().QueryString("g_UnitTests_Id");
  if (configured && configured->View().find_first_of("\r\n") != std::string_view::npos)
    return Error::Conversion(kMainSource.Here(), Format("The @ holds a line end.", kWhat));
  return StoreText(kWhat, configured ? configured->View() : "UNKNOWNBUILDID", buildText);
}

Result<void> StoreReportDestination() {
  if (g_crashReportUrl.IsEmpty()) {
    reportPath[0] = '\0';
    reportStream = stderr;
    return {};
  }
  const Result<Url> url = Url::FromText(g_crashReportUrl);
  if (!url) return url.GetError();
  reportStream = nullptr;
  if (Result<void> stored = StoreText("path of g_crashReportUrl", url->SystemPath(), reportPath);
      !stored)
    return stored;
  HoldReportFolder(reportPath);
  return {};
}

void InstallCapture() {
  if (g_tarvo.framework->IsUnderDebugger()) return;
  g_moduleState.captureInstalled = PrepareReportStream() && InstallCrashHandler() != 0;
  if (g_moduleState.captureInstalled) {
    SetCrashReportCallback(WriteCrashReport);
    g_tarvo.framework->Crash().offerWriter(WriteCrashReport);
    // Of an earlier host of this process.
    SetAfterReportCallback(nullptr);
  } else {
    g_tarvo.framework->Output().Critical(kMainSource.Here(), "InitCrashHandler failed");
  }
}

Result<void> CreateObservable() {
  Result<Ref<Observable>> observable =
      CreateObject<Observable>(*g_tarvo.framework, Observable::kClassId);
  if (!observable) return observable.GetError();
  g_moduleState.crashDataDirectory = *std::move(observable);
  return g_moduleState.crashDataDirectory->Initialise("ObservableCrashDataDirectory");
}

}  // namespace

ModuleState g_moduleState;

void RegisterMain(Registration& registration) {
  DeclareConfiguration(registration.configuration);
  registration.components.push_back(
      {.interfaceId = CrashHandler::kInterfaceId,
       .className = "CrashHandlerImpl",
       .create = []() -> Ref<Object> { return CreateCrashHandlerImpl(); }});
  registration.lifecycle.push_back({.initialise = InitialiseModule, .free = FreeModule});
  registration.executionJobs.push_back({.registryId = ExecutionJobRecord::kRegistry,
                                        .jobId = "net.tarvo.execution.crashlogresolve",
                                        .create = CreateCrashLogResolveExecution});
}

Result<void> InitialiseModule() {
  if (Result<void> stored = StoreBuildIdentifier(); !stored) return stored;
  if (Result<void> stored = StoreReportDestination(); !stored) return stored;
  InstallCapture();
  if (Result<void> created = CreateObservable(); !created) return created;
  g_moduleState.isInitialised = true;
  return {};
}

void FreeModule() {
  g_moduleState.isInitialised = false;
  if (g_moduleState.crashDataDirectory) {
    g_moduleState.crashDataDirectory->Deactivate();
    g_moduleState.crashDataDirectory = nullptr;
  }
  if (g_moduleState.captureInstalled) {
    g_tarvo.framework->Crash().offerWriter(nullptr);
    RestoreSignalHandlers();
  }
  g_moduleState.captureInstalled = false;
}

}  // namespace tarvo::crashhandler
