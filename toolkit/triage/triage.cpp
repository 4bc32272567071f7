#include "toolkit/triage/triage.h"

#include <optional>
#include <set>
#include <utility>

#include "toolkit/base/sha256.h"
#include "toolkit/triage/reading/read_logs.h"
#include "toolkit/triage/result/sum_up.h"
#include "toolkit/triage/store/crash_store.h"

namespace tarvo::toolkit {

Result<TriageResult> RunTriage(const TriageOptions& options) {
  if (auto loaded = Sha256::Load(); !loaded) return loaded.GetError();
  // Before anything is read: whether the database can be used is known at once.
  Result<CrashStore> store = CrashStore::Open(options.database);
  if (!store) return store.GetError();
  Draft draft;
  std::size_t read = 0;
  std::vector<SkippedLog> skipped = ReadLogs(options.paths, {.threads = options.threads,
                                                             .take =
                                                                 [&](CrashRecord&& record) {
                                                                   ++read;
                                                                   draft.Add(std::move(record));
                                                                 },
                                                             .onProgress = options.onProgress});
  const Result<std::set<std::string>> added = store->Add(draft);
  if (!added) return added.GetError();
  Result<StoredCrashes> crashes = store->Read();
  if (!crashes) return crashes.GetError();
  TriageResult result = MakeTriageResult(*std::move(crashes), *added);
  result.skipped = std::move(skipped);
  result.logsRead = read;
  result.hasDatabase = !options.database.empty();
  return result;
}

}  // namespace tarvo::toolkit
