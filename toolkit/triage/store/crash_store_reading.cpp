#include <map>
#include <string_view>

#include "toolkit/triage/grouping/fingerprint.h"
#include "toolkit/triage/store/crash_store.h"
#include "toolkit/triage/store/stored_rows.h"

namespace tarvo::toolkit {
namespace {

/// Sets frames and stacks: all of the stacks at once would be too much.
void TakeStacks(Sqlite& database, StoredCrashes& crashes) {
  std::map<std::string_view, const std::string*> classes;
  for (const StoredGroup& group : crashes.groups) classes[group.id] = &group.crashClass;
  std::map<std::string_view, StoredVariant*> most;  // by group; of equal ones the first
  for (StoredVariant& variant : crashes.variants) {
    StoredVariant*& known = most[variant.group];
    if (known == nullptr || variant.reports > known->reports) known = &variant;
  }
  for (StoredVariant& variant : crashes.variants) {
    CrashStack stack = ReadStack(database, variant.id);
    const std::string* crashClass = classes[variant.group];
    Fingerprint print = MakeFingerprint(stack, crashClass == nullptr ? "" : *crashClass);
    variant.frames = std::move(print.frames);
    variant.culprit = print.culprit;
    if (most[variant.group] == &variant) variant.stack = std::move(stack);
  }
}

}  // namespace

Result<StoredCrashes> CrashStore::Read() {
  StoredCrashes crashes{.groups = ReadGroups(database_),
                        .variants = ReadVariants(database_),
                        .reports = ReadReports(database_)};
  TakeStacks(database_, crashes);
  if (auto outcome = database_.Outcome(); !outcome) return outcome.GetError();
  return crashes;
}

}  // namespace tarvo::toolkit
