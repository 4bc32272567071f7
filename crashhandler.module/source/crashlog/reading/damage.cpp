#include "crashlog/reading/damage.h"

#include <utility>

#include "crashlog/base/property_names.h"

namespace tarvo::crashhandler {

void Damage::Note(std::size_t line, const String& expected) {
  lastLine_ = line;
  if (notes_.Size() == kMaximumNotes) return;
  DataDictionary note;
  note.Set(property::kDamageLine, std::uint64_t{line});
  note.Set(property::kDamageExpected, expected);
  notes_.Append(std::move(note));
}

void Damage::MarkCut() {
  notes_.Mutable(notes_.Size() - 1).As<DataDictionary>()->Set(property::kDamageCut, true);
}

String Damage::First() const {
  const auto* note = notes_[0].As<DataDictionary>();
  return note->Get<String>(property::kDamageExpected).ValueOr({});
}

}  // namespace tarvo::crashhandler
