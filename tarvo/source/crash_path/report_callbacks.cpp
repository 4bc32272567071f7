#include "crash_path/report_callbacks.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>

#include "crash_path/process_lock.h"
#include "tarvo/format.h"

namespace tarvo {
namespace {

constexpr SourceFile kReportCallbacks{"tarvo/source/report_callbacks"};

struct Chain {
  std::array<ChainedCallback, kMaximumReportCallbacks> items;
  std::size_t size;
};

/// A change is made in the one that is not in use.
constinit std::array<Chain, 2> g_chains{};
constinit std::atomic<const Chain*> g_chain{g_chains.data()};
constinit ProcessLock g_chainLock;
constinit std::atomic<CrashCallback> g_writer{nullptr};
constinit std::atomic<CrashCallback> g_reportWritten{nullptr};
constinit std::atomic<CrashCallback> g_captureEnds{nullptr};
/// Of the chain, in the crash.
constinit std::size_t g_nextCallback = 0;

/// Has `change` work on a copy of the chain and puts that in its place.
void Change(const auto& change) {
  const Chain* current = g_chain.load();
  Chain& next = current == g_chains.data() ? g_chains[1] : g_chains[0];
  next = *current;
  change(next);
  g_chain.store(&next);
}

class ChainService final : public Counted<CrashCallbacks> {
 public:
  Result<void> Append(const ChainedCallback& callback) override {
    if (callback.function == nullptr)
      return Error::IllegalArgument(kReportCallbacks.Here(), "The callback has no function.");
    if (g_writer.load() == nullptr)
      return Error::IllegalState(kReportCallbacks.Here(), "No crash capture is installed.");
    const std::scoped_lock lock(g_chainLock);
    if (g_chain.load()->size == kMaximumReportCallbacks) {
      return Error::IllegalArgument(
          kReportCallbacks.Here(),
          Format("There are @ callbacks already (kMaximumReportCallbacks).",
                 kMaximumReportCallbacks));
    }
    Change([&](Chain& chain) { chain.items[chain.size++] = callback; });
    return {};
  }

  void Remove(const ChainedCallback& callback) override {
    const std::scoped_lock lock(g_chainLock);
    Change([&](Chain& chain) {
      auto* const end = chain.items.begin() + chain.size;
      const auto* kept = std::remove_if(chain.items.begin(), end, [&](const auto& item) {
        return item.function == callback.function && item.data == callback.data;
      });
      chain.size = static_cast<std::size_t>(kept - chain.items.begin());
    });
  }

  CrashCallback Writer() override { return g_writer.load(); }
};

void Call(const std::atomic<CrashCallback>& callback, const CrashInfo* crash) {
  if (const CrashCallback function = callback.load()) function(crash);
}

}  // namespace

Ref<CrashCallbacks> ReportCallbackChain() { return Make<ChainService>(); }

void ClearReportCallbacks() {
  const std::scoped_lock lock(g_chainLock);
  Change([](Chain& chain) { chain.size = 0; });
}

void SetCrashEnd(CrashCallback reportWritten, CrashCallback captureEnds) {
  g_reportWritten.store(reportWritten);
  g_captureEnds.store(captureEnds);
}

void ReportWritten(const CrashInfo* crash) { Call(g_reportWritten, crash); }

bool RunNextCallback(const WrittenReport* report) {
  const Chain& chain = *g_chain.load();
  if (g_nextCallback >= chain.size) return false;
  // Counted first: one that faults does not come again.
  const auto& [function, data] = chain.items[g_nextCallback++];
  function(report, data);
  return true;
}

void CaptureEnds(const CrashInfo* crash) { Call(g_captureEnds, crash); }

void OfferWriter(CrashCallback writer) { g_writer.store(writer); }

}  // namespace tarvo
