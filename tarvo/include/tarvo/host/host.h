#pragma once

/// Embedding: start a Host before the program's own work and keep it until the end.
///
///     #include <cstdio>
///
///     #include "tarvo/host/host.h"
///
///     int main(int argc, char** argv) {
///       const auto arguments = tarvo::TakeConfigurationArguments(argc, argv);
///       auto host = tarvo::Host::Start({.arguments = arguments});
///       if (!host) {
///         std::fprintf(stderr, "%s\n", host.GetError().Text().ToStdString().c_str());
///         return 2;
///       }
///       // The program's own work. A fatal signal from here on leaves a crash report.
///       return 0;
///     }
///
/// In CMake: `find_package(tarvo)` and `target_link_libraries(program PRIVATE tarvo::host)`.

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tarvo/framework.h"
#include "tarvo/host/crash_guard.h"
#include "tarvo/registration.h"
#include "tarvo/result.h"

namespace tarvo {

/// What a Host is started with. The defaults suit a program that brings no settings of its own.
struct HostOptions {
  /// Configuration of the command line, each "--g_NAME=VALUE"; the strongest source. Of one name's
  /// several values the last one counts.
  std::vector<std::string> arguments{};

  /// Module files, loaded in this order. Empty: every "*.so" of "../modules" beside the program or,
  /// where there is none, of "tarvo/modules" beside the host library; "crashhandler.so" first, the
  /// others by name.
  std::vector<std::string> modules{};

  /// A TOML file of lines `g_name = value`; the weakest source but the declared defaults. Empty:
  /// none is read.
  std::string configFile{};

  /// Which component is bound to an interface, each "INTERFACE=CLASS". Of several components for
  /// an interface that is not named here the last loaded one is bound.
  std::vector<std::string> bindings{};

  /// Components that the program itself brings. They count as loaded after the modules'. Their
  /// texts must outlive the Host.
  std::vector<ComponentRecord> components{};

  /// What the crash guard does unless the configuration says otherwise.
  CrashGuardOptions crashGuard{};

  /// The time that modules see and that timed waits for jobs follow; must outlive the Host. Null:
  /// the system's steady clock.
  ClockService* clock = nullptr;
};

/// Takes the "--g_…" arguments out of a program's command line and returns them; `argc` and `argv`
/// keep the others in their order, for the program's own parser. Ends at an argument "--".
[[nodiscard]] [[gnu::visibility("default")]] std::vector<std::string> TakeConfigurationArguments(
    int& argc, char** argv);

/// One configuration entry as it stands, in texts for people.
struct ConfigurationEntry {
  std::string owner;  ///< the id of the module that declared it, or "host"
  std::string name;
  std::string kind;      ///< "Bool", "Int", "Float" or "String"
  std::string fallback;  ///< the declared default
  std::string range;     ///< "0 to 2"; empty when every value of the kind is accepted
  std::string value;
  std::string source;  ///< "command line", "environment variable TARVO_g_x", "FILE:LINE", "default"
  std::string help;
};

/// One component as it stands.
struct ComponentEntry {
  std::string owner;  ///< the id of the module that brought it, or "program"
  std::string interfaceId;
  std::string className;
  std::string status;  ///< "uninitialized", or "initialized" once its module is
  bool isBound = false;
};

/// A running framework with its modules: loaded, configured, initialised, and freed in reverse
/// order by the destructor, which first waits for the jobs that run. One Host at a time in a
/// process; started and destroyed in the same thread.
///
/// Modules stay mapped until the process ends, also after the Host is gone: texts and code of
/// theirs may be held by errors, threads' ends, exit handlers and signal actions.
class [[gnu::visibility("default")]] Host {
 public:
  /// Loads the modules, reads the configuration, then initialises the modules in the order in which
  /// they were loaded. Any error ends the start, with all undone that was done; its text is ready
  /// for print and names the file, entry, interface or module concerned and what was expected.
  /// Environment variables "TARVO_g_NAME" are configuration too, weaker than `arguments`.
  static Result<std::unique_ptr<Host>> Start(HostOptions options);

  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  /// The services that modules have, for the program itself.
  [[nodiscard]] Framework& Services() noexcept;

  /// Every declared entry: the modules' in the order of loading, then the host's own.
  [[nodiscard]] std::vector<ConfigurationEntry> ConfigurationEntries() const;
  [[nodiscard]] std::vector<ComponentEntry> Components() const;

  /// The ids of the execution jobs, in the order of their registration.
  [[nodiscard]] std::vector<std::string> ExecutionJobIds() const;
  /// Runs an execution job on a worker and waits for it. An illegal-argument error that names the
  /// known ids when there is no such job; otherwise the job's own result.
  Result<void> RunExecutionJob(std::string_view jobId);

 private:
  class [[gnu::visibility("hidden")]] Implementation;
  explicit Host(std::unique_ptr<Implementation> implementation) noexcept;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tarvo
