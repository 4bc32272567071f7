#include "toolkit/report/reading.h"

#include <string>
#include <utility>

#include "tarvo/crash_report.h"
#include "tarvo/report/resolve.h"
#include "tarvo/resolve_observer.h"
#include "toolkit/report/crash_mark.h"
#include "toolkit/report/spelling.h"

namespace tarvo::report {

namespace property = crash_report::property;

namespace {

thread_local Reading* t_reading = nullptr;

/// The line that a note names is one of the copy; the report's own is one less behind the added
/// line.
void CorrectLine(DataDictionary& note, std::size_t addedLine) {
  const auto* line = note.FindAs<std::uint64_t>(property::kDamageLine);
  const auto* expected = note.FindAs<String>(property::kDamageExpected);
  if (line == nullptr || expected == nullptr || *line < addedLine) return;
  const std::string before = "line " + std::to_string(*line);
  const std::uint64_t own = *line - 1;
  std::string text = expected->ToStdString();
  if (const std::size_t at = text.find(before); at != std::string::npos)
    text.replace(at, before.size(), "line " + std::to_string(own));
  note.Set(String(property::kDamageLine), own);
  note.Set(String(property::kDamageExpected), String(text));
}

void CorrectLines(DataDictionary& crashLog, std::size_t addedLine) {
  DataValue* value = crashLog.FindMutable(property::kDamage);
  auto* notes = value == nullptr ? nullptr : value->As<DataArray>();
  for (std::size_t i = 0; notes != nullptr && i < notes->Size(); ++i)
    if (auto* note = notes->Mutable(i).As<DataDictionary>()) CorrectLine(*note, addedLine);
}

/// The text ends where unpacking did.
void NotePackedDamage(DataDictionary& crashLog, const String& damage) {
  const auto* before = crashLog.FindAs<DataArray>(property::kDamage);
  DataArray notes = before == nullptr ? DataArray() : *before;
  DataDictionary note;
  note.Set(String(property::kDamageExpected), damage);
  note.Set(String(property::kDamageCut), true);
  notes.Append(std::move(note));
  crashLog.Set(String(property::kDamage), std::move(notes));
}

ReportDamage DamageOf(const DataDictionary& crashLog) {
  const auto* notes = crashLog.FindAs<DataArray>(property::kDamage);
  if (notes == nullptr || notes->IsEmpty()) return {};
  const auto* first = (*notes)[0].As<DataDictionary>();
  const auto* last = (*notes)[notes->Size() - 1].As<DataDictionary>();
  ReportDamage damage{.isDamaged = true, .isCut = last->Find(property::kDamageCut) != nullptr};
  const DataDictionary& told = damage.isCut ? *last : *first;
  if (const auto* line = told.FindAs<std::uint64_t>(property::kDamageLine)) damage.line = *line;
  if (const auto* expected = told.FindAs<String>(property::kDamageExpected))
    damage.expected = String(expected->View());
  return damage;
}

class ReadingObserver final : public Counted<ResolveObserver> {
 public:
  bool Salvages() override { return SalvagesReading(); }
  void ReportRead(DataDictionary& crashLog) override { CompleteReading(crashLog); }
  void FrameDone(const FrameReport&) override {}
};

}  // namespace

ReadingScope::ReadingScope(Reading& reading) noexcept
    : outer_(std::exchange(t_reading, &reading)) {}
ReadingScope::~ReadingScope() { t_reading = outer_; }

bool SalvagesReading() noexcept { return t_reading != nullptr && t_reading->salvages; }

void CompleteReading(DataDictionary& crashLog) {
  if (t_reading == nullptr) return;
  if (!t_reading->packedDamage.IsEmpty()) NotePackedDamage(crashLog, t_reading->packedDamage);
  if (t_reading->isOwn) RestoreSpelled(crashLog);
  if (t_reading->addedLine != 0) CorrectLines(crashLog, t_reading->addedLine);
  t_reading->damage = DamageOf(crashLog);
  MarkCrash(crashLog);
}

ComponentRecord ReadingComponent() {
  return {.interfaceId = ResolveObserver::kInterfaceId,
          .className = "ReadingObserver",
          .create = []() -> Ref<Object> { return Make<ReadingObserver>(); }};
}

}  // namespace tarvo::report
