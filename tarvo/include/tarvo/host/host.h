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

#include "tarvo/crash_callbacks.h"
#include "tarvo/framework.h"
#include "tarvo/host/crash_guard.h"
#include "tarvo/registration.h"
#include "tarvo/result.h"

namespace tarvo {

/// A text for crash reports.
struct AttachedText {
  std::string name{};
  std::string text{};
};

/// What a Host is started with. The defaults suit a program that brings no settings of its own.
struct HostOptions {
  /// Configuration of the command line, each "--g_NAME=VALUE"; the strongest source. Of one name's
  /// several values the last one counts.
  std::vector<std::string> arguments{};

  /// Module files, loaded in this order; a name alone ("crashhandler") is a module of "../modules"
  /// beside the program or, where it is not there, of "tarvo/modules" beside the host library.
  /// Empty: of the first of these folders that has any, the modules that belong to the host
  /// library, "crashhandler" before "symbolreader". Others there are passed over with a warning.
  std::vector<std::string> modules{};

  /// A TOML file of lines `g_name = value`; the weakest source but the declared defaults. Empty:
  /// none is read.
  std::string configFile{};

  /// What the program's build is called in its reports, and by that the archive of its symbols. At
  /// most 127 bytes, no line end. Entry g_UnitTests_Id. Empty: the program's GNU build id.
  std::string build{};

  /// A folder, made where missing, for reports that cannot be written to their place, under the
  /// names that they have there. A relative path starts at the user's folder for state
  /// ($XDG_STATE_HOME, else ~/.local/state). It counts from the start on; with the crash guard's
  /// `report` also for what becomes unusable later. Entry g_crashReportFallback. Empty: such
  /// reports go to standard error.
  std::string reportFallback{};

  /// What is called behind the report of a crash, in this order; tarvo/crash_callbacks.h tells what
  /// it may do.
  std::vector<ChainedCallback> reportCallbacks{};

  /// Files whose last lines go into reports, and texts that do; as by AttachFile and AttachText
  /// (tarvo/host/attachments.h), also after the Host.
  std::vector<std::string> attachedFiles{};
  std::vector<AttachedText> attachedTexts{};

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

  /// Whether the start ends with an error, and not with a warning, where the environment has a
  /// variable "TARVO_g_…" that no entry is or accepts; and with `modules` empty whether every
  /// "*.so" of the first folder that has any is loaded, and has to be a module. For programs whose
  /// user is to know, such as tools.
  bool strict = false;

  /// For a host that is put into a program which knows nothing of it: gives way to one that the
  /// program starts itself, prints no warnings, and leaves fatal signals ignored that were.
  bool yields = false;
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
  /// Environment variables "TARVO_g_NAME" are configuration too, weaker than `arguments`;
  /// "TARVO_DEFAULT_g_NAME", which `tarvo exec` sets, stand between `configFile` and the options.
  static Result<std::unique_ptr<Host>> Start(HostOptions options);

  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  /// What the start went on with all the same, each ready for print: a report that cannot be
  /// written to its place, unknown variables of the environment, files that are no modules. Printed
  /// on standard error too, which nobody may read in a desktop program.
  [[nodiscard]] std::vector<std::string> Warnings() const;

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
