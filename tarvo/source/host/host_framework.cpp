#include "host/host_framework.h"

#include "crash_path/crash_services.h"
#include "crash_path/report_callbacks.h"
#include "files/application_directories.h"
#include "host/class_registry.h"
#include "services/debugger_detection.h"

namespace tarvo {

HostFramework::HostFramework(ClockService& clock)
    : clock_(clock),
      jobs_(clock),
      isUnderDebugger_(RunsUnderDebugger()),
      programDirectory_(DirectoryOfApplication()),
      moduleDirectory_(programDirectory_) {}

const CrashServices& HostFramework::Crash() { return kCrashServices; }

Result<Ref<Object>> HostFramework::CreateObject(std::string_view classId) {
  return CreateFrameworkObject(classId, ownEntries_);
}

Result<Ref<Object>> HostFramework::Bind(std::string_view interfaceId) {
  // The host's own, which is no component to choose.
  if (interfaceId == CrashCallbacks::kInterfaceId) return Ref<Object>(ReportCallbackChain());
  return components_.Bind(interfaceId);
}

Result<void> HostFramework::DeclareOwnEntries(const HostOptions& options) {
  DeclareHostEntries(ownEntries_, options, ownTable_);
  return configuration_.Declare("host", ownTable_);
}

}  // namespace tarvo
