#include "toolkit/report/reading.h"

#include <utility>

#include "tarvo/report/resolve.h"
#include "tarvo/resolve_observer.h"
#include "toolkit/report/spelling.h"

namespace tarvo::report {
namespace {

thread_local Reading* t_reading = nullptr;

class ReadingObserver final : public Counted<ResolveObserver> {
 public:
  void ReportRead(DataDictionary& crashLog) override { CompleteReading(crashLog); }
  void FrameDone(const FrameReport&) override {}
};

}  // namespace

ReadingScope::ReadingScope(Reading& reading) noexcept
    : outer_(std::exchange(t_reading, &reading)) {}
ReadingScope::~ReadingScope() { t_reading = outer_; }

void CompleteReading(DataDictionary& crashLog) {
  if (t_reading != nullptr && t_reading->isOwn) RestoreSpelled(crashLog);
}

ComponentRecord ReadingComponent() {
  return {.interfaceId = ResolveObserver::kInterfaceId,
          .className = "ReadingObserver",
          .create = []() -> Ref<Object> { return Make<ReadingObserver>(); }};
}

}  // namespace tarvo::report
