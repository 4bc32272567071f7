#include "toolkit/triage/store/draft.h"

#include <utility>

namespace tarvo::toolkit {

const DraftVariant* Draft::AddVariant(CrashRecord& record) {
  DraftVariant& variant = variants_[record.fingerprint.variant];
  const bool isNew = variant.id.empty();
  if (isNew) {
    variant.id = record.fingerprint.variant;
    variant.group = record.fingerprint.group;
    variant.signature = record.fingerprint.signature;
    variant.crashClass = record.crashClass;
  }
  if (isNew || record.namedFrames > variant.namedFrames) {
    variant.stack = Compact(record.stack, texts_);
    variant.furtherFrames = record.furtherFrames;
    variant.namedFrames = record.namedFrames;
  }
  return &variant;
}

void Draft::Add(CrashRecord&& record) {
  DraftReport*& report = byHash_[record.hash];
  const bool isNew = report == nullptr;
  if (isNew) report = reports_.emplace_back(std::make_unique<DraftReport>()).get();
  report->paths.push_back(std::move(record.path));
  if (!isNew && record.namedFrames <= report->namedFrames) return;
  report->hash = std::move(record.hash);
  report->variant = AddVariant(record);
  report->time = record.time;
  report->build = std::move(record.build);
  report->system = std::move(record.system);
  report->namedFrames = record.namedFrames;
  report->missing = std::move(record.missing);
}

}  // namespace tarvo::toolkit
