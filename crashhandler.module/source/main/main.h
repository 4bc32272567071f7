#pragma once

#include <atomic>

#include "tarvo/observable.h"
#include "tarvo/registration.h"
#include "tarvo/source_location.h"

namespace tarvo::crashhandler {

inline constexpr SourceFile kMainSource{"crashhandler.module/source/main"};

/// What the module holds between its initialisation and its free step. Changed only by these two,
/// in the host's thread.
struct ModuleState {
  /// Looked at by the service first, from any thread: a handler may be held past the module's end.
  std::atomic<bool> isInitialised = false;
  bool captureInstalled = false;
  Ref<Observable> crashDataDirectory;
};
extern ModuleState g_moduleState;

/// Registers the four URL entries, the component CrashHandlerImpl, the module's life cycle and the
/// execution job of the resolver, in this order. When the module is loaded.
void RegisterMain(Registration& registration);

/// Fixes the build identifier and the report's destination, installs the capture unless the process
/// runs under a debugger, and makes the observable. The first error stops it, but for a capture
/// that could not be installed: a module without it still serves. In the host's thread.
Result<void> InitialiseModule();

/// Lets go of the observable and puts the previous signal actions back. In the host's thread.
void FreeModule();

}  // namespace tarvo::crashhandler
