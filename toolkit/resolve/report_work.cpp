#include "toolkit/resolve/report_work.h"

#include "tarvo/resolve_observer.h"
#include "toolkit/report/reading.h"

namespace tarvo::toolkit {
namespace {

thread_local ReportWork* t_work = nullptr;

class ReportWorker final : public Counted<ResolveObserver> {
 public:
  bool Salvages() override { return report::SalvagesReading(); }
  void ReportRead(DataDictionary& crashLog) override { report::CompleteReading(crashLog); }
  void FrameDone(const FrameReport& report) override {
    if (t_work == nullptr) return;
    t_work->tally.Add(report);
    if (!report.build.IsEmpty()) t_work->builds.insert(report.build);
  }
  bool ReportResolved(DataDictionary& crashLog) override {
    return t_work == nullptr || !t_work->onResolved || t_work->onResolved(crashLog);
  }
};

}  // namespace

ReportWorkScope::ReportWorkScope(ReportWork& work) noexcept { t_work = &work; }
ReportWorkScope::~ReportWorkScope() { t_work = nullptr; }

ComponentRecord ReportWorkComponent() {
  return {.interfaceId = ResolveObserver::kInterfaceId,
          .className = "ReportWorker",
          .create = []() -> Ref<Object> { return Make<ReportWorker>(); }};
}

}  // namespace tarvo::toolkit
