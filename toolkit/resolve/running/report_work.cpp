#include "toolkit/resolve/running/report_work.h"

#include <cstdio>
#include <string>

#include "tarvo/crash_report.h"
#include "tarvo/resolve_observer.h"
#include "toolkit/base/place_identity.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/report/reading.h"
#include "toolkit/resolve/running/progress.h"
#include "toolkit/resolve/summary/lacks_document.h"

namespace tarvo::toolkit {
namespace {

thread_local ReportWork* t_work = nullptr;
ArchiveCache* g_cache = nullptr;

/// The builds that the crash log states, told to the cache.
void RetireOutdated(const DataDictionary& crashLog) {
  const auto* modules = crashLog.FindAs<DataArray>(crash_report::property::kLoadedModules);
  for (std::size_t i = 0; modules != nullptr && i < modules->Size(); ++i) {
    const auto* module = (*modules)[i].As<DataDictionary>();
    const auto* build =
        module == nullptr ? nullptr : module->FindAs<String>(crash_report::property::kBuild);
    if (build != nullptr) g_cache->Retire(build->ToStdString());
  }
}

/// The last two names of a path: in a cache these are the build and the module's bundle.
std::string EndOf(std::string_view path) {
  const std::size_t last = path.rfind('/');
  if (last == std::string_view::npos || last == 0) return std::string(path);
  const std::size_t slash = path.rfind('/', last - 1);
  return std::string(path.substr(slash == std::string_view::npos ? 0 : slash + 1));
}

std::string WorkText(const WorkReport& report, const String& module) {
  char amount[64] = "";
  constexpr double kMega = 1e6;
  if (report.all != 0)
    std::snprintf(amount, sizeof amount, ": %.1f of %.1f MB",
                  static_cast<double>(report.done) / kMega,
                  static_cast<double>(report.all) / kMega);
  if (report.work == SymbolWork::Unpacking) return "unpacking " + EndOf(report.file) + amount;
  return "indexing " + module.ToStdString() + " (" + EndOf(report.file) + ")" + amount;
}

class ReportWorker final : public Counted<ResolveObserver> {
 public:
  bool Salvages() override { return report::SalvagesReading(); }
  void TextRead(const String& text) override {
    if (t_work != nullptr && t_work->onTextRead) t_work->onTextRead(text);
  }
  void ReportRead(DataDictionary& crashLog) override {
    report::CompleteReading(crashLog);
    if (t_work != nullptr) t_work->modules = ModuleFacts(crashLog);
    if (g_cache != nullptr) RetireOutdated(crashLog);
  }
  void FrameDone(const FrameReport& report) override {
    if (t_work == nullptr) return;
    t_work->tally.Add(report, t_work->modules);
    // Frames of one module follow each other, with the same text and not only an equal one.
    if (report.build.View().data() == t_work->build.View().data()) return;
    t_work->build = report.build;
    if (!report.build.IsEmpty()) t_work->builds.insert(report.build);
  }
  bool ReportResolved(DataDictionary& crashLog) override {
    return t_work == nullptr || !t_work->onResolved || t_work->onResolved(crashLog);
  }
  void ModuleBegins(const String& module) override {
    if (t_work != nullptr) t_work->module = module;
  }
  void Working(const WorkReport& report) override {
    if (t_work != nullptr) ShowActivity(WorkText(report, t_work->module));
  }
  void WorkEnds() override { ShowActivity({}); }
  void PartMissed(const Url& place) override {
    const std::string path = place.SystemPath().ToStdString();
    NoteMissed(path, IdentifyPlace(path));
  }
};

}  // namespace

ReportWorkScope::ReportWorkScope(ReportWork& work) noexcept { t_work = &work; }
ReportWorkScope::~ReportWorkScope() { t_work = nullptr; }

void NoteMissed(const std::string& place, const std::string& identity) {
  // What could not be written as it is would be another place when it is read back.
  if (t_work == nullptr || place.size() > kLongestNotedText || SafeText(place) != place) return;
  if (t_work->missed.size() < kMostNotedPlaces) t_work->missed.try_emplace(place, identity);
}

void RetireOutdatedIn(ArchiveCache* cache) { g_cache = cache; }

ComponentRecord ReportWorkComponent() {
  return {.interfaceId = ResolveObserver::kInterfaceId,
          .className = "ReportWorker",
          .create = []() -> Ref<Object> { return Make<ReportWorker>(); }};
}

}  // namespace tarvo::toolkit
