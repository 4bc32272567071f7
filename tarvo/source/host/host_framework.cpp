#include "host/host_framework.h"

#include "crash_path/crash_services.h"
#include "files/application_directories.h"
#include "host/class_registry.h"
#include "services/debugger_detection.h"

namespace tarvo {

HostFramework::HostFramework(ClockService& clock)
    : clock_(clock),
      jobs_(clock),
      isUnderDebugger_(RunsUnderDebugger()),
      programDirectory_(DirectoryOfProgram()),
      moduleDirectory_(programDirectory_) {}

const CrashServices& HostFramework::Crash() { return kCrashServices; }

Result<Ref<Object>> HostFramework::CreateObject(std::string_view classId) {
  return CreateFrameworkObject(classId, ownEntries_);
}

Result<void> HostFramework::DeclareOwnEntries(const CrashGuardOptions& crashGuard) {
  DeclareHostEntries(ownEntries_, crashGuard, ownTable_);
  return configuration_.Declare("host", ownTable_);
}

}  // namespace tarvo
