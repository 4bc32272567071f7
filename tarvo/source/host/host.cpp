#include "tarvo/host/host.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <filesystem>
#include <system_error>
#include <utility>

#include "crash_guard/crash_guard.h"
#include "crash_guard/report_file.h"
#include "files/application_directories.h"
#include "host/host_framework.h"
#include "host/module.h"
#include "host/module_files.h"
#include "services/clock.h"
#include "tarvo/format.h"

namespace tarvo {
namespace {

constexpr SourceFile kHost{"tarvo/source/host"};

/// A module has one connection, so a process has one host.
constinit std::atomic<bool> g_isRunning{false};

}  // namespace

/// The host's parts. Destroyed in reverse: jobs end, shared components go, modules are freed in
/// reverse order, then the framework goes.
class Host::Implementation {
 public:
  explicit Implementation(ClockService& clock) : framework_(clock) {}
  ~Implementation();
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  Result<void> Start(const HostOptions& options);

  [[nodiscard]] HostFramework& Services() noexcept { return framework_; }
  [[nodiscard]] std::vector<std::string> ExecutionJobIds() const;
  Result<void> RunExecutionJob(std::string_view jobId);

 private:
  /// Holds the process's one place for a host.
  class OnlyHost {
   public:
    OnlyHost() noexcept : taken_(!g_isRunning.exchange(true)) {}
    ~OnlyHost() {
      if (taken_) g_isRunning.store(false);
    }
    OnlyHost(const OnlyHost&) = delete;
    OnlyHost& operator=(const OnlyHost&) = delete;
    [[nodiscard]] bool IsTaken() const noexcept { return taken_; }

   private:
    const bool taken_;
  };

  Result<void> LoadModules(const HostOptions& options);
  Result<void> Configure(const HostOptions& options);
  Result<void> UseGuardedReport();
  [[nodiscard]] const ExecutionJobRecord* FindExecutionJob(std::string_view jobId) const;

  OnlyHost only_;
  HostFramework framework_;
  std::vector<std::unique_ptr<Module>> modules_;
  CrashGuard crashGuard_;
};

Host::Implementation::~Implementation() {
  framework_.Queue().Shutdown();
  crashGuard_.Stop();
  framework_.Bindings().Clear();
  while (!modules_.empty()) modules_.pop_back();
}

Result<void> Host::Implementation::Start(const HostOptions& options) {
  if (!only_.IsTaken())
    return Error::IllegalState(kHost.Here(), "A host is already running in this process.");
  if (auto loaded = LoadModules(options); !loaded) return loaded;
  if (auto configured = Configure(options); !configured) return configured;
  if (auto chosen = framework_.Bindings().Choose(modules_, options.components, options.bindings);
      !chosen)
    return chosen;
  crashGuard_.NoteEarlierActions();
  for (const auto& module : modules_)
    if (auto initialised = module->Initialise(); !initialised) return initialised;
  crashGuard_.Start(framework_.OwnEntries().crashGuard, framework_);
  return {};
}

Result<void> Host::Implementation::LoadModules(const HostOptions& options) {
  std::vector<std::string> files = options.modules;
  if (files.empty()) {
    auto found = DefaultModuleFiles(DefaultModuleDirectories());
    if (!found) return found.GetError();
    files = *std::move(found);
  }
  // Known before the first module registers: it may note the directory then.
  std::error_code missing;
  framework_.SetModuleDirectory(DirectoryOf(std::filesystem::canonical(files.front(), missing)));
  for (const std::string& file : files) {
    auto module = Module::Load(file, framework_);
    if (!module) return module.GetError();
    const bool isTwice = std::ranges::any_of(
        modules_, [&](const auto& loaded) { return loaded->IsSameAs(**module); });
    if (isTwice) {
      return Error::IllegalArgument(kHost.Here(), Format("The module \"@\" is given twice.", file));
    }
    modules_.push_back(*std::move(module));
  }
  return {};
}

Result<void> Host::Implementation::Configure(const HostOptions& options) {
  Configuration& entries = framework_.Entries();
  for (const auto& module : modules_) {
    if (auto declared = entries.Declare(module->Id(), module->Registered().configuration);
        !declared)
      return declared;
  }
  if (auto declared = framework_.DeclareOwnEntries(options.crashGuard); !declared) return declared;
  if (!options.configFile.empty()) {
    const auto assignments = ReadConfigurationFile(options.configFile);
    if (!assignments) return assignments.GetError();
    if (auto assigned = entries.Assign(*assignments); !assigned) return assigned;
  }
  if (auto assigned = entries.Assign(ReadEnvironment(environ)); !assigned) return assigned;
  const auto assignments = ReadArguments(options.arguments);
  if (!assignments) return assignments.GetError();
  if (auto assigned = entries.Assign(*assignments); !assigned) return assigned;
  entries.Apply();
  return UseGuardedReport();
}

/// Gives the capture the path under which the guard will put the report's file.
Result<void> Host::Implementation::UseGuardedReport() {
  const CrashGuardOptions& guard = framework_.OwnEntries().crashGuard;
  if (!guard.enabled || guard.report.IsEmpty()) return {};
  auto path = PrepareReportFile(guard.report.View());
  if (!path) return path.GetError();
  auto assigned = framework_.Entries().Assign(
      {{.name = "g_crashReportUrl", .value = PlainText{*path}, .source = "g_crashGuardReport"}});
  if (assigned) framework_.Entries().Apply();
  return assigned;
}

const ExecutionJobRecord* Host::Implementation::FindExecutionJob(std::string_view jobId) const {
  const ExecutionJobRecord* found = nullptr;
  for (const auto& module : modules_)
    for (const ExecutionJobRecord& job : module->Registered().executionJobs)
      if (job.registryId == ExecutionJobRecord::kRegistry && job.jobId == jobId) found = &job;
  return found;
}

std::vector<std::string> Host::Implementation::ExecutionJobIds() const {
  std::vector<std::string> ids;
  for (const auto& module : modules_) {
    for (const ExecutionJobRecord& job : module->Registered().executionJobs) {
      if (job.registryId == ExecutionJobRecord::kRegistry &&
          std::ranges::find(ids, job.jobId) == ids.end())
        ids.emplace_back(job.jobId);
    }
  }
  return ids;
}

Result<void> Host::Implementation::RunExecutionJob(std::string_view jobId) {
  const ExecutionJobRecord* record = FindExecutionJob(jobId);
  if (record == nullptr) {
    std::string known;
    for (const std::string& id : ExecutionJobIds()) known += (known.empty() ? "" : ", ") + id;
    return Error::IllegalArgument(kHost.Here(),
                                  Format("There is no execution job \"@\"; known are: @.", jobId,
                                         known.empty() ? "none" : known));
  }
  const auto pending = framework_.Jobs().Enqueue(record->create());
  return pending ? (*pending)->TakeResult() : pending.GetError();
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): callers hand over what they have made.
Result<std::unique_ptr<Host>> Host::Start(HostOptions options) try {
  auto implementation =
      std::make_unique<Implementation>(options.clock != nullptr ? *options.clock : SteadyClock());
  if (auto started = implementation->Start(options); !started) return started.GetError();
  return std::unique_ptr<Host>(new Host(std::move(implementation)));
} catch (const std::exception& exception) {
  return Error::IllegalState(kHost.Here(), Format("The host could not start: @", exception.what()));
}

Host::Host(std::unique_ptr<Implementation> implementation) noexcept
    : implementation_(std::move(implementation)) {}
Host::~Host() = default;

Framework& Host::Services() noexcept { return implementation_->Services(); }
std::vector<ConfigurationEntry> Host::ConfigurationEntries() const {
  return implementation_->Services().Entries().List();
}
std::vector<ComponentEntry> Host::Components() const {
  return implementation_->Services().Bindings().List();
}
std::vector<std::string> Host::ExecutionJobIds() const {
  return implementation_->ExecutionJobIds();
}
Result<void> Host::RunExecutionJob(std::string_view jobId) {
  return implementation_->RunExecutionJob(jobId);
}

std::vector<std::string> TakeConfigurationArguments(int& argc, char** argv) {
  std::vector<std::string> taken;
  int kept = 0;
  bool isOpen = true;
  for (int i = 0; i < argc; ++i) {
    const std::string_view argument = argv[i];
    isOpen = isOpen && argument != "--";
    if (isOpen && i > 0 && argument.starts_with("--g_")) {
      taken.emplace_back(argument);
    } else {
      argv[kept++] = argv[i];
    }
  }
  argv[kept] = nullptr;
  argc = kept;
  return taken;
}

}  // namespace tarvo
