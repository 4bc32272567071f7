#include "toolkit/triage/triage.h"

#include <cstddef>
#include <utility>

#include "toolkit/base/sha256.h"
#include "toolkit/triage/reading/read_logs.h"
#include "toolkit/triage/result/sum_up.h"
#include "toolkit/triage/store/crash_store.h"

namespace tarvo::toolkit {

namespace {

/// Opens the database before anything is read: whether it can be used is known at once.
Result<CrashStore> OpenStore(const TriageOptions& options) {
  if (auto loaded = Sha256::Load(); !loaded) return loaded.GetError();
  return CrashStore::Open(options.database);
}

struct ReadDraft {
  Draft draft{};
  std::size_t logs = 0;
  std::vector<SkippedLog> skipped{};
};

ReadDraft Read(const TriageOptions& options) {
  ReadDraft read;
  const auto take = [&](CrashRecord&& record) {
    ++read.logs;
    read.draft.Add(std::move(record));
  };
  read.skipped = ReadLogs(
      options.paths, {.threads = options.threads, .take = take, .onProgress = options.onProgress});
  return read;
}

}  // namespace

Result<TriageResult> RunTriage(const TriageOptions& options) {
  Result<CrashStore> store = OpenStore(options);
  if (!store) return store.GetError();
  ReadDraft read = Read(options);
  const Result<Addition> added = store->Add(read.draft);
  if (!added) return added.GetError();
  Result<StoredCrashes> crashes = store->Read();
  if (!crashes) return crashes.GetError();
  TriageResult result = MakeTriageResult(*std::move(crashes), added->groups);
  result.skipped = std::move(read.skipped);
  result.logsRead = read.logs;
  result.hasDatabase = !options.database.empty();
  return result;
}

Result<AddedLogs> AddLogs(const TriageOptions& options) {
  Result<CrashStore> store = OpenStore(options);
  if (!store) return store.GetError();
  ReadDraft read = Read(options);
  const Result<Addition> added = store->Add(read.draft);
  if (!added) return added.GetError();
  AddedLogs logs{.logs = {}, .skipped = std::move(read.skipped)};
  for (const auto& report : read.draft.Reports())
    for (const std::string& path : report->paths)
      logs.logs.push_back({.path = path,
                           .group = report->variant->group,
                           .signature = report->variant->signature,
                           .isTaken = added->reports.contains(report->hash),
                           .isNewGroup = added->groups.contains(report->variant->group)});
  return logs;
}

}  // namespace tarvo::toolkit
