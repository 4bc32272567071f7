#include "crashlog/reading/damage.h"

#include <utility>

#include "crashlog/base/property_names.h"

namespace tarvo::crashhandler {

void Damage::Note(std::size_t line, const String& expected) {
  if (notes_.Size() == kMaximumNotes) return;
  DataDictionary note;
  note.Set(property::kDamageLine, std::uint64_t{line});
  note.Set(property::kDamageExpected, expected);
  notes_.Append(std::move(note));
}

String Damage::First() const {
  const auto* note = notes_[0].As<DataDictionary>();
  return note->Get<String>(property::kDamageExpected).ValueOr({});
}

}  // namespace tarvo::crashhandler
