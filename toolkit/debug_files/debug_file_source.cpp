#include "toolkit/debug_files/debug_file_source.h"

#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>
#include <utility>

#include "tarvo/format.h"
#include "tarvo/symbol_file_source.h"
#include "toolkit/base/place_identity.h"
#include "toolkit/debug_files/archived_files.h"
#include "toolkit/debug_files/debuginfod.h"
#include "toolkit/debug_files/module_identity.h"
#include "toolkit/pack/pack_library.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kSource{"command/resolve/debug_files"};

bool IsFile(const fs::path& path) {
  std::error_code ignored;
  return fs::is_regular_file(path, ignored);
}

/// Whether the module's own file is there and may be that of the crash: one without a build id only
/// where it has not been changed since.
bool HasOwnFile(const ModuleIdentity& module) {
  struct stat file{};
  if (module.path.empty() || stat(module.path.c_str(), &file) != 0 || !S_ISREG(file.st_mode))
    return false;
  return !module.id.empty() || (module.crashTime && file.st_mtim.tv_sec <= *module.crashTime);
}

class Places {
 public:
  using OnProblem = std::function<void(const std::string& place, const Error& error)>;
  /// `onProblem` is told where a place could not be asked. Any thread.
  Places(DebugFileOptions options, OnProblem onProblem)
      : options_(std::move(options)), onProblem_(std::move(onProblem)) {}

  using Files = std::vector<SymbolFileRequest>;
  using Paths = std::vector<std::string>;
  struct Looked {
    Files files{};   ///< that are there
    Paths places{};  ///< that were looked at
  };
  /// One step behind the archives, from 1 to kSteps - 1.
  Looked Step(const ModuleIdentity& module, std::size_t step);
  static constexpr std::size_t kSteps = 6;

  [[nodiscard]] const DebugFileOptions& Options() const noexcept { return options_; }

 private:
  /// Paths of files that are there, and places that were looked at.
  struct Found {
    Paths paths{};
    Paths places{};
  };
  [[nodiscard]] Found ByBuildId(const ModuleIdentity& module);
  [[nodiscard]] Found Own(const ModuleIdentity& module);
  [[nodiscard]] Found ByDebugLink(const ModuleIdentity& module);
  [[nodiscard]] Found Downloaded(const ModuleIdentity& module);

  DebugFileOptions options_;
  OnProblem onProblem_;
  Debuginfod debuginfod_;
};

Places::Looked Places::Step(const ModuleIdentity& module, std::size_t step) {
  if (options_.archivesOnly) return {};
  constexpr std::array<Found (Places::*)(const ModuleIdentity&), kSteps - 1> kFind = {
      &Places::ByBuildId, &Places::Own, &Places::ByDebugLink, &Places::Downloaded, &Places::Own};
  Found found = (this->*kFind[step - 1])(module);
  Looked looked{.places = std::move(found.places)};
  for (const std::string& path : found.paths) {
    looked.files.push_back({.file = Url::FromSystemPath(path),
                            .id = String(module.id),
                            .takesSymbolTable = step == kSteps - 1,
                            .platform = String(module.platform)});
  }
  return looked;
}

Places::Found Places::ByBuildId(const ModuleIdentity& module) {
  Found found;
  if (module.id.empty()) return found;
  for (const fs::path directory : options_.directories) {
    const fs::path path =
        directory / ".build-id" / module.id.substr(0, 2) / (module.id.substr(2) + ".debug");
    if (IsFile(path)) found.paths.push_back(path);
    found.places.push_back(path);
  }
  return found;
}

Places::Found Places::Own(const ModuleIdentity& module) {
  Found found;
  if (HasOwnFile(module)) found.paths.push_back(module.path);
  if (!module.path.empty()) found.places.push_back(module.path);
  return found;
}

Places::Found Places::ByDebugLink(const ModuleIdentity& module) {
  if (!HasOwnFile(module)) return {};
  const auto library = PackLibrary::Load();
  if (!library) return {};
  auto debugFile = (*library)->findDebugFile(module.path, options_.directories);
  if (!debugFile) return {};
  Found found{.places = std::move(debugFile->places)};
  if (!debugFile->path.empty()) found.paths.push_back(debugFile->path);
  return found;
}

Places::Found Places::Downloaded(const ModuleIdentity& module) {
  if (module.id.empty() || !Debuginfod::IsConfigured()) return {};
  const auto tell = [&](long done, long all) {
    if (!options_.onActivity) return;
    constexpr double kMegabyte = 1e6;
    std::array<char, 64> amount{};
    std::snprintf(amount.data(), amount.size(), all > 0 ? "%.1f of %.1f MB" : "%.1f MB",
                  static_cast<double>(done) / kMegabyte, static_cast<double>(all) / kMegabyte);
    options_.onActivity(module.name + ": " + amount.data() + " from debuginfod");
  };
  const Result<std::string> found = debuginfod_.Find(module.id, tell);
  if (options_.onActivity) options_.onActivity({});
  if (!found) onProblem_("debuginfod", found.GetError());
  return found && !found->empty() ? Found{.paths = {*found}} : Found();
}

/// A search that is taken up where it stood: each step runs once for a module, however many reports
/// ask.
struct Search {
  std::mutex mutex;
  std::vector<SymbolFileRequest> found;
  std::map<std::string, std::string> places;  ///< that were looked at, and what stood there
  std::size_t nextStep = 0;
};

/// What the component's object works with, and what it leaves for the summary.
struct State {
  explicit State(DebugFileOptions options)
      : places(std::move(options),
               [this](const std::string& place, const Error& error) { Note(place, error); }) {}

  void Note(const std::string& place, const Error& reason) {
    const std::scoped_lock lock(mutex);
    if (refused.size() < kMostRefusals) refused.emplace(place, reason.Text().ToStdString());
  }

  Places places;
  std::mutex mutex;  ///< of what follows
  /// By what tells one module from another, its builds included.
  std::map<std::vector<std::string>, std::shared_ptr<Search>> searches{};
  Framework* framework = nullptr;
  ArchiveCache* archives = nullptr;
  std::map<std::string, std::string> refused{};
};
std::unique_ptr<State> g_state;

class DebugFileSource final : public Counted<SymbolFileSource> {
 public:
  Result<SymbolFileRequest> Check(const ModuleQuery& query, SymbolFileRequest request) override {
    const ModuleIdentity module = Identify(query);
    request.id = String(module.id);
    request.platform = String(module.platform);
    if (g_state->archives == nullptr) return request;
    if (auto fits = CheckArchived(*g_state->archives, module, request); !fits)
      return fits.GetError();
    return request;
  }

  Result<SymbolFileRequest> Find(const ModuleQuery& query, std::size_t number) override {
    const ModuleIdentity module = Identify(query);
    const std::vector<std::string> builds = BuildsFor(query, g_state->places.Options().build);
    const std::shared_ptr<Search> search = SearchFor(module, builds);
    const std::scoped_lock lock(search->mutex);
    while (search->found.size() <= number && search->nextStep < Places::kSteps)
      Advance(*search, module, builds);
    const bool isThere = number < search->found.size();
    // Without debug information, or with a symbol table alone, each place is one to wait for; but
    // not the own file, where that serves.
    if (!isThere || search->found[number].takesSymbolTable)
      TellMissed(*search, isThere ? module.path : "");
    if (isThere) return search->found[number];
    return Error::IllegalState(kSource.Here(),
                               Format("No further debug file of @ is known.", module.name));
  }

  void Refused(const ModuleQuery& query, const SymbolFileRequest& request,
               const Error& reason) override {
    // A file without debug information is asked again for its symbol table: nothing is wrong.
    const ModuleIdentity module = Identify(query);
    const std::string path = request.file.SystemPath().ToStdString();
    if (path == module.path && !request.takesSymbolTable) return;
    // One program has the name by which all are looked up.
    if (g_state->archives != nullptr && IsBesideTheRightOne(*g_state->archives, module, request))
      return;
    g_state->Note(path, reason);
  }

 private:
  /// Takes the next step.
  static void Advance(Search& search, const ModuleIdentity& module,
                      const std::vector<std::string>& builds) {
    const std::size_t step = search.nextStep++;
    const auto looked = step == 0 ? Places::Looked{.files = Archived(module, builds)}
                                  : g_state->places.Step(module, step);
    search.found.insert(search.found.end(), looked.files.begin(), looked.files.end());
    for (const std::string& place : looked.places)
      search.places.try_emplace(place, IdentifyPlace(place));
  }

  static void TellMissed(const Search& search, const std::string& serving) {
    const auto& onMissed = g_state->places.Options().onMissed;
    if (!onMissed) return;
    for (const auto& [place, identity] : search.places)
      if (place != serving) onMissed(place, identity);
  }

  static Places::Files Archived(const ModuleIdentity& module,
                                const std::vector<std::string>& builds) {
    if (g_state->archives == nullptr) return {};
    return FindArchived(*g_state->framework, *g_state->archives, module, builds);
  }

  static std::shared_ptr<Search> SearchFor(const ModuleIdentity& module,
                                           const std::vector<std::string>& builds) {
    std::vector<std::string> key = {module.name, module.path, module.id, module.platform,
                                    module.isExecutable ? "program" : "",
                                    // Of two crashes only one may be older than the file.
                                    module.id.empty() && HasOwnFile(module) ? "own file" : ""};
    key.insert(key.end(), builds.begin(), builds.end());
    const std::scoped_lock lock(g_state->mutex);
    std::shared_ptr<Search>& search = g_state->searches[std::move(key)];
    if (search == nullptr) search = std::make_shared<Search>();
    return search;
  }
};

}  // namespace

std::string DebugFilePlaces(const DebugFileOptions& options) {
  std::string places;
  for (const std::string& directory : options.directories)
    places += "  " + directory + "/.build-id, by build id\n";
  places += "  the modules' own files, and what their debug links name\n";
  places += Debuginfod::IsConfigured() ? "  debuginfod, by build id\n"
                                       : "  not debuginfod: DEBUGINFOD_URLS is not set\n";
  return places;
}

ComponentRecord DebugFileComponent(DebugFileOptions options) {
  g_state = std::make_unique<State>(std::move(options));
  return {.interfaceId = SymbolFileSource::kInterfaceId,
          .className = "DebugFileSource",
          .create = []() -> Ref<Object> { return Make<DebugFileSource>(); }};
}

void LookIntoArchives(Framework& framework, ArchiveCache* archives) {
  if (g_state == nullptr) return;
  g_state->framework = &framework;
  g_state->archives = archives;
}

std::map<std::string, std::string> RefusedDebugFiles() {
  if (g_state == nullptr) return {};
  const std::scoped_lock lock(g_state->mutex);
  return g_state->refused;
}

}  // namespace tarvo::toolkit
