#include "tarvo/host/host.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <filesystem>
#include <system_error>
#include <utility>

#include "crash_guard/crash_guard.h"
#include "crash_path/report_callbacks.h"
#include "files/application_directories.h"
#include "host/configuring.h"
#include "host/host_framework.h"
#include "host/module.h"
#include "host/module_files.h"
#include "host/report_destination.h"
#include "host/start_warnings.h"
#include "services/clock.h"
#include "tarvo/format.h"
#include "tarvo/host/attachments.h"

namespace tarvo {
namespace {

constexpr SourceFile kHost{"tarvo/source/host"};

/// A module has one connection, so a process has one host.
constinit std::atomic<bool> g_isRunning{false};

/// The one that runs, if it gives way to another.
constinit std::atomic<Host*> g_yielding{nullptr};

}  // namespace

/// The host's parts. Destroyed in reverse: jobs end, shared components go, modules are freed in
/// reverse order, then the framework goes.
class Host::Implementation {
 public:
  Implementation(ClockService& clock, bool warns)
      : framework_(clock), warnings_(framework_.Output(), warns) {}
  ~Implementation();
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  Result<void> Start(const HostOptions& options);

  [[nodiscard]] HostFramework& Services() noexcept { return framework_; }
  [[nodiscard]] const std::vector<std::string>& Warned() const noexcept { return warnings_.All(); }
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

  Result<std::vector<std::string>> ChooseModules(const HostOptions& options);
  Result<void> LoadModules(const HostOptions& options);
  void AddToReports(const HostOptions& options);
  [[nodiscard]] const ExecutionJobRecord* FindExecutionJob(std::string_view jobId) const;

  OnlyHost only_;
  HostFramework framework_;
  StartWarnings warnings_;
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
  if (auto configured = Configure(framework_, modules_, options, warnings_); !configured)
    return configured;
  if (auto used = UseReportDestination(framework_, warnings_); !used) return used;
  if (auto chosen = framework_.Bindings().Choose(modules_, options.components, options.bindings);
      !chosen)
    return chosen;
  crashGuard_.NoteEarlierActions();
  for (const auto& module : modules_)
    if (auto initialised = module->Initialise(); !initialised) return initialised;
  crashGuard_.Start(framework_.OwnEntries().crashGuard, framework_);
  crashGuard_.KeepIgnored(options.yields);
  AddToReports(options);
  return {};
}

/// The program's callbacks and attachments. What is wrong with them does not end the start.
void Host::Implementation::AddToReports(const HostOptions& options) {
  const auto check = [&](const Result<void>& added) {
    if (!added) warnings_.Add(added.GetError().Where(), added.GetError().Message());
  };
  ClearReportCallbacks();
  const Ref<CrashCallbacks> chain = ReportCallbackChain();
  // Under a debugger there is no capture, and nothing to say of it.
  if (!framework_.IsUnderDebugger())
    for (const ChainedCallback& callback : options.reportCallbacks) check(chain->Append(callback));
  for (const std::string& file : options.attachedFiles) check(AttachFile(file));
  for (const auto& [name, text] : options.attachedTexts) check(AttachText(name, text));
}

/// The files that are loaded.
Result<std::vector<std::string>> Host::Implementation::ChooseModules(const HostOptions& options) {
  const std::vector<std::string> directories = DefaultModuleDirectories();
  if (options.modules.empty() && options.strict) return DefaultModuleFiles(directories);
  if (options.modules.empty()) {
    auto known = KnownModuleFiles(directories);
    if (!known) return known.GetError();
    if (!known->passedOver.empty()) {
      warnings_.Add(kHost.Here(),
                    Format("\"@\" (of @ such files) is not loaded: it is no module that belongs to "
                           "the host. One that is wanted is to be named among the modules.",
                           known->passedOver.front(), known->passedOver.size()));
    }
    return std::move(known->files);
  }
  std::vector<std::string> files;
  for (const std::string& module : options.modules) {
    auto file = FindModuleFile(module, directories);
    if (!file) return file.GetError();
    files.push_back(*std::move(file));
  }
  return files;
}

Result<void> Host::Implementation::LoadModules(const HostOptions& options) {
  const auto chosen = ChooseModules(options);
  if (!chosen) return chosen.GetError();
  const std::vector<std::string>& files = *chosen;
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
  if (Host* yielding = g_yielding.exchange(nullptr)) yielding->implementation_.reset();
  auto implementation = std::make_unique<Implementation>(
      options.clock != nullptr ? *options.clock : SteadyClock(), !options.yields);
  if (auto started = implementation->Start(options); !started) return started.GetError();
  std::unique_ptr<Host> host(new Host(std::move(implementation)));
  if (options.yields) g_yielding.store(host.get());
  return host;
} catch (const std::exception& exception) {
  return Error::IllegalState(kHost.Here(), Format("The host could not start: @", exception.what()));
}

Host::Host(std::unique_ptr<Implementation> implementation) noexcept
    : implementation_(std::move(implementation)) {}
Host::~Host() {
  Host* self = this;
  g_yielding.compare_exchange_strong(self, nullptr);
}

std::vector<std::string> Host::Warnings() const { return implementation_->Warned(); }
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
