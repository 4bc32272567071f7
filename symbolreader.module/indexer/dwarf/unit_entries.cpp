#include "indexer/dwarf/unit_entries.h"

#include <algorithm>
#include <utility>

namespace tarvo::symbolreader {
namespace {

using namespace llvm::dwarf;

/// Entries that one name may lead over; more go in circles.
constexpr std::size_t kMostReferences = 32;

/// Where the value of an attribute is kept; null where nobody asks for it.
RawValue* Wanted(Attribute name, FunctionEntry& entry) {
  switch (name) {
    case DW_AT_low_pc:
      return &entry.lowPc;
    case DW_AT_high_pc:
      return &entry.highPc;
    case DW_AT_ranges:
      return &entry.ranges;
    case DW_AT_abstract_origin:
      return &entry.origin;
    case DW_AT_specification:
      return &entry.declaration;
    case DW_AT_linkage_name:
    case DW_AT_MIPS_linkage_name:
      return &entry.linkageName;
    case DW_AT_name:
      return &entry.name;
    case DW_AT_call_file:
      return &entry.callFile;
    case DW_AT_call_line:
      return &entry.callLine;
    default:
      return nullptr;
  }
}

/// A signed one is never negative where it is asked for, and then reads like the others.
bool IsLeb(Form form) {
  switch (form) {
    case DW_FORM_sdata:
    case DW_FORM_udata:
    case DW_FORM_ref_udata:
    case DW_FORM_strx:
    case DW_FORM_addrx:
    case DW_FORM_rnglistx:
    case DW_FORM_GNU_addr_index:
    case DW_FORM_GNU_str_index:
      return true;
    default:
      return false;
  }
}

RawValue ReadValue(const UnitEntries& unit, AttributeSpec spec, ByteCursor& cursor) {
  if (spec.form == DW_FORM_indirect) spec.form = static_cast<Form>(cursor.ReadLeb());
  RawValue value{.form = spec.form};
  const auto size = getFixedFormByteSize(spec.form, unit.unit->getFormParams());
  if (spec.form == DW_FORM_implicit_const) {
    value.number = static_cast<std::uint64_t>(spec.constant);
  } else if (spec.form == DW_FORM_string) {
    value.text = cursor.ReadText();
  } else if (IsLeb(spec.form)) {
    value.number = cursor.ReadLeb();
  } else if (size && *size <= sizeof value.number) {
    value.number = cursor.Read(*size);
  } else {
    value = {};
    if (spec.form == DW_FORM_indirect)
      cursor.Fail();
    else
      unit.abbreviations->Skip(spec.form, cursor);
  }
  return value;
}

llvm::StringRef TextAt(llvm::StringRef section, std::uint64_t offset) {
  const llvm::StringRef rest = section.substr(std::min<std::uint64_t>(offset, section.size()));
  const std::size_t end = rest.find('\0');
  return end == llvm::StringRef::npos ? llvm::StringRef() : rest.substr(0, end);
}

template <typename Key>
Key KeyOf(const llvm::DWARFUnit& unit) {
  const FormParams& form = unit.getFormParams();
  return {unit.getAbbreviationsOffset(), form.Version, form.AddrSize, form.Format};
}

}  // namespace

std::string_view UnitEntries::Bytes() const {
  const llvm::StringRef section = unit->getInfoSection().Data;
  return section.substr(0, std::min<std::uint64_t>(unit->getNextUnitOffset(), section.size()));
}

FunctionEntry UnitEntries::ReadFunction(const Abbreviation& abbreviation, std::uint64_t offset,
                                        ByteCursor& cursor) const {
  FunctionEntry entry{.offset = offset};
  for (const AttributeSpec& spec : abbreviations->Attributes(abbreviation)) {
    if (RawValue* value = Wanted(spec.name, entry))
      *value = ReadValue(*this, spec, cursor);
    else
      abbreviations->Skip(spec.form, cursor);
  }
  return entry;
}

std::uint64_t UnitEntries::ReadSibling(const Abbreviation& abbreviation, ByteCursor& cursor) const {
  std::uint64_t sibling = 0;
  for (const AttributeSpec& spec : abbreviations->Attributes(abbreviation)) {
    if (spec.name == DW_AT_sibling)
      sibling = unit->getOffset() + ReadValue(*this, spec, cursor).number;
    else
      abbreviations->Skip(spec.form, cursor);
  }
  return sibling;
}

llvm::StringRef UnitEntries::CompilationDirectory() const {
  ByteCursor cursor(Bytes(), FirstEntry());
  const Abbreviation* abbreviation = abbreviations->Find(cursor.ReadLeb());
  if (abbreviation == nullptr) return {};
  for (const AttributeSpec& spec : abbreviations->Attributes(*abbreviation)) {
    if (spec.name == DW_AT_comp_dir) return TextOf(ReadValue(*this, spec, cursor));
    abbreviations->Skip(spec.form, cursor);
  }
  return {};
}

llvm::StringRef UnitEntries::TextOf(const RawValue& value) const {
  switch (value.form) {
    case DW_FORM_string:
      return value.text;
    case DW_FORM_strp:
      return TextAt(unit->getStringSection(), value.number);
    case DW_FORM_line_strp:
      return TextAt(unit->getContext().getDWARFObj().getLineStrSection(), value.number);
    case DW_FORM_GNU_strp_alt:
    case DW_FORM_strp_sup: {
      const UnitDirectory* other = directory->Supplementary();
      return other == nullptr ? llvm::StringRef() : TextAt(other->Strings(), value.number);
    }
    case DW_FORM_strx:
    case DW_FORM_strx1:
    case DW_FORM_strx2:
    case DW_FORM_strx3:
    case DW_FORM_strx4:
    case DW_FORM_GNU_str_index: {
      auto offset = unit->getStringOffsetSectionItem(static_cast<std::uint32_t>(value.number));
      if (offset) return TextAt(unit->getStringSection(), *offset);
      llvm::consumeError(offset.takeError());
      return {};
    }
    default:
      return {};
  }
}

std::optional<std::uint64_t> UnitEntries::AddressOf(const RawValue& value) const {
  switch (value.form) {
    case DW_FORM_addr:
      return value.number;
    case DW_FORM_addrx:
    case DW_FORM_addrx1:
    case DW_FORM_addrx2:
    case DW_FORM_addrx3:
    case DW_FORM_addrx4:
    case DW_FORM_GNU_addr_index: {
      const auto address = unit->getAddrOffsetSectionItem(static_cast<std::uint32_t>(value.number));
      return address ? std::optional(address->Address) : std::nullopt;
    }
    default:
      return std::nullopt;
  }
}

std::optional<std::uint64_t> UnitEntries::ConstantOf(const RawValue& value) {
  switch (value.form) {
    case DW_FORM_data1:
    case DW_FORM_data2:
    case DW_FORM_data4:
    case DW_FORM_data8:
    case DW_FORM_udata:
    case DW_FORM_sdata:
    case DW_FORM_implicit_const:
    case DW_FORM_sec_offset:
      return value.number;
    default:
      return std::nullopt;
  }
}

UnitDirectory::UnitDirectory(std::vector<llvm::DWARFUnit*> units, llvm::StringRef abbreviations,
                             UnitDirectory* supplementary, llvm::StringRef strings)
    : section_(abbreviations),
      strings_(strings),
      supplementary_(supplementary),
      units_(std::move(units)) {
  for (const llvm::DWARFUnit* unit : units_) ++users_[KeyOf<Key>(*unit)];
  std::ranges::sort(units_, {}, [](const llvm::DWARFUnit* unit) { return unit->getOffset(); });
}

std::shared_ptr<const AbbreviationTable> UnitDirectory::Read(const llvm::DWARFUnit& unit) const {
  return std::make_shared<AbbreviationTable>(section_, unit.getAbbreviationsOffset(),
                                             unit.getFormParams());
}

std::shared_ptr<const AbbreviationTable> UnitDirectory::Share(const llvm::DWARFUnit& unit) {
  const std::scoped_lock lock(mutex_);
  auto& table = shared_[KeyOf<Key>(unit)];
  if (table == nullptr) table = Read(unit);
  return table;
}

UnitEntries UnitDirectory::Open(llvm::DWARFUnit& unit) {
  const auto users = users_.find(KeyOf<Key>(unit));
  const bool isShared = users != users_.end() && users->second > 1;
  return {&unit, isShared ? Share(unit) : Read(unit), this};
}

UnitEntries UnitDirectory::OpenAround(std::uint64_t offset) {
  const auto behind = std::ranges::upper_bound(
      units_, offset, {}, [](const llvm::DWARFUnit* unit) { return unit->getOffset(); });
  if (behind == units_.begin()) return {};
  llvm::DWARFUnit* unit = *std::prev(behind);
  if (offset >= unit->getNextUnitOffset()) return {};
  return {unit, Share(*unit), this};
}

namespace {

/// An entry that a name may stand in.
struct NamePlace {
  UnitEntries unit;
  FunctionEntry entry;
};

std::optional<NamePlace> Follow(const UnitEntries& unit, const RawValue& reference) {
  NamePlace place{unit, {}};
  std::uint64_t offset = reference.number;
  switch (reference.form) {
    case DW_FORM_ref1:
    case DW_FORM_ref2:
    case DW_FORM_ref4:
    case DW_FORM_ref8:
    case DW_FORM_ref_udata:
      offset += unit.unit->getOffset();
      break;
    case DW_FORM_ref_addr:
      if (offset < unit.unit->getOffset() || offset >= unit.unit->getNextUnitOffset())
        place.unit = unit.directory->OpenAround(offset);
      break;
    case DW_FORM_GNU_ref_alt:
    case DW_FORM_ref_sup4:
    case DW_FORM_ref_sup8:
      if (unit.directory->Supplementary() == nullptr) return std::nullopt;
      place.unit = unit.directory->Supplementary()->OpenAround(offset);
      break;
    default:
      return std::nullopt;
  }
  if (place.unit.unit == nullptr || offset < place.unit.FirstEntry()) return std::nullopt;
  ByteCursor cursor(place.unit.Bytes(), offset);
  const Abbreviation* abbreviation = place.unit.abbreviations->Find(cursor.ReadLeb());
  if (abbreviation == nullptr) return std::nullopt;
  place.entry = place.unit.ReadFunction(*abbreviation, offset, cursor);
  return place;
}

}  // namespace

llvm::StringRef NameOf(const UnitEntries& unit, const FunctionEntry& entry) {
  std::vector<NamePlace> places = {{unit, entry}};
  llvm::StringRef plainName;
  for (std::size_t i = 0; i < kMostReferences && !places.empty(); ++i) {
    const NamePlace place = std::move(places.back());
    places.pop_back();
    const llvm::StringRef linkageName = place.unit.TextOf(place.entry.linkageName);
    if (!linkageName.empty()) return linkageName;
    if (plainName.empty()) plainName = place.unit.TextOf(place.entry.name);
    for (const RawValue* reference : {&place.entry.origin, &place.entry.declaration})
      if (*reference)
        if (auto next = Follow(place.unit, *reference)) places.push_back(*std::move(next));
  }
  return plainName;
}

}  // namespace tarvo::symbolreader
