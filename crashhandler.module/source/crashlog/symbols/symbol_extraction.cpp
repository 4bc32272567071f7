#include "crashlog/symbols/symbol_extraction.h"

#include <chrono>

#include "connection.h"
#include "crashlog/base/configuration.h"
#include "crashlog/base/source.h"
#include "tarvo/format.h"

namespace tarvo::crashhandler {
namespace {

constexpr std::chrono::nanoseconds kProgressInterval = std::chrono::seconds(10);

Result<void> Extract(const Url& archive, const Url& directory) {
  Result<Ref<ReadArchive>> reader =
      CreateObject<ReadArchive>(*g_tarvo.framework, ReadArchive::kZipClassId);
  if (!reader) return reader.GetError();
  if (Result<void> opened = (*reader)->Open(archive); !opened) return opened;
  return (*reader)->Extract(directory);
}

void Show(std::string_view pattern, const Url& archive, std::chrono::nanoseconds time) {
  if (ShowsDiagnostics(ResolveDiagnostics::Errors))
    g_tarvo.framework->Output().Console(kSource.Here(), Format(pattern, archive, time));
}

}  // namespace

Result<void> ExtractSymbolArchive(const Url& archive, const Url& directory) {
  Framework& framework = *g_tarvo.framework;
  Result<Ref<PendingJob>> job = framework.Jobs().Enqueue(
      Make<ClosureJob>([archive, directory] { return Extract(archive, directory); }));
  if (!job) return job.GetError();
  const std::chrono::nanoseconds start = framework.Clock().Now();
  const auto elapsed = [&] { return framework.Clock().Now() - start; };
  while (!(*job)->Wait(kProgressInterval))
    Show("Currently extracting @  (@ so far)", archive, elapsed());
  const Result<void> extracted = (*job)->TakeResult();
  const std::chrono::nanoseconds duration = elapsed();
  if (extracted && duration >= kProgressInterval) Show("Extracting @ took @", archive, duration);
  return extracted;
}

}  // namespace tarvo::crashhandler
