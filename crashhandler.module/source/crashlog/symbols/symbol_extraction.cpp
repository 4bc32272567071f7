#include "crashlog/symbols/symbol_extraction.h"

#include <chrono>

#include "connection.h"
#include "crashlog/base/configuration.h"
#include "crashlog/base/source.h"
#include "tarvo/format.h"
#include "tarvo/resolve_observer.h"

namespace tarvo::crashhandler {
namespace {

constexpr std::chrono::nanoseconds kProgressInterval = std::chrono::seconds(10);
constexpr std::chrono::nanoseconds kBetweenLooks = std::chrono::milliseconds(100);

Result<Ref<ReadArchive>> Open(const Url& archive) {
  Result<Ref<ReadArchive>> reader =
      CreateObject<ReadArchive>(*g_tarvo.framework, ReadArchive::kZipClassId);
  if (!reader) return reader.GetError();
  if (Result<void> opened = (*reader)->Open(archive); !opened) return opened.GetError();
  return reader;
}

void Show(std::string_view pattern, const Url& archive, std::chrono::nanoseconds time) {
  if (ShowsDiagnostics(ResolveDiagnostics::Errors))
    g_tarvo.framework->Output().Console(kSource.Here(), Format(pattern, archive, time));
}

/// Tells the ResolveObserver, if there is one, how far an extraction is.
class Teller {
 public:
  Teller(const ReadArchive& reader, const Url& archive)
      : reader_(reader),
        file_(archive.SystemPath()),
        observer_(Bind<ResolveObserver>(*g_tarvo.framework).ValueOr(nullptr)) {}
  ~Teller() {
    if (hasTold_) observer_->WorkEnds();
  }
  Teller(const Teller&) = delete;
  Teller& operator=(const Teller&) = delete;

  void Tell() {
    if (!observer_) return;
    const ArchiveProgress progress = reader_.Progress();
    observer_->Working({SymbolWork::Unpacking, file_, progress.done, progress.all});
    hasTold_ = true;
  }

 private:
  const ReadArchive& reader_;
  const String file_;
  Ref<ResolveObserver> observer_;
  bool hasTold_ = false;
};

}  // namespace

Result<void> ExtractSymbolArchive(const Url& archive, const Url& directory) {
  Framework& framework = *g_tarvo.framework;
  const Result<Ref<ReadArchive>> reader = Open(archive);
  if (!reader) return reader.GetError();
  Result<Ref<PendingJob>> job = framework.Jobs().Enqueue(
      Make<ClosureJob>([reader = *reader, directory] { return reader->Extract(directory); }));
  if (!job) return job.GetError();
  const std::chrono::nanoseconds start = framework.Clock().Now();
  const auto elapsed = [&] { return framework.Clock().Now() - start; };
  Teller teller(**reader, archive);
  for (std::chrono::nanoseconds shown = kProgressInterval; !(*job)->Wait(kBetweenLooks);) {
    teller.Tell();
    if (elapsed() < shown) continue;
    Show("Currently extracting @  (@ so far)", archive, elapsed());
    shown += kProgressInterval;
  }
  const Result<void> extracted = (*job)->TakeResult();
  const std::chrono::nanoseconds duration = elapsed();
  if (extracted && duration >= kProgressInterval) Show("Extracting @ took @", archive, duration);
  return extracted;
}

}  // namespace tarvo::crashhandler
