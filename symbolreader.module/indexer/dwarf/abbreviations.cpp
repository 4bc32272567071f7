#include "indexer/dwarf/abbreviations.h"

#include <algorithm>

namespace tarvo::symbolreader {
namespace {

using namespace llvm::dwarf;

/// More of them in one table, or attributes in all, are no compiler's.
constexpr std::size_t kMostAbbreviations = std::size_t{1} << 20;
constexpr std::size_t kMostAttributes = std::size_t{1} << 23;

bool HasNoCode(Tag tag) {
  return tag == DW_TAG_enumeration_type || tag == DW_TAG_subroutine_type ||
         tag == DW_TAG_array_type;
}

std::int64_t ReadSignedLeb(ByteCursor& cursor) {
  std::uint64_t number = 0;
  for (unsigned shift = 0; !cursor.HasFailed();) {
    const std::uint64_t byte = cursor.Read(1);
    if (shift < 64) number |= (byte & 0x7F) << shift;
    shift += 7;
    if (byte >= 0x80) continue;
    if ((byte & 0x40) != 0 && shift < 64) number |= ~std::uint64_t{0} << shift;
    break;
  }
  return static_cast<std::int64_t>(number);
}

}  // namespace

AbbreviationTable::AbbreviationTable(std::string_view section, std::uint64_t offset,
                                     FormParams form)
    : form_(form) {
  ByteCursor cursor(section, offset);
  while (abbreviations_.size() < kMostAbbreviations) {
    Abbreviation abbreviation{.code = cursor.ReadLeb()};
    if (abbreviation.code == 0) break;
    abbreviation.tag = static_cast<Tag>(cursor.ReadLeb());
    abbreviation.hasChildren = cursor.Read(1) != 0;
    abbreviation.isFunction =
        abbreviation.tag == DW_TAG_subprogram || abbreviation.tag == DW_TAG_inlined_subroutine;
    if (!ReadAttributes(cursor, abbreviation)) break;
    abbreviations_.push_back(abbreviation);
  }
  if (!std::ranges::is_sorted(abbreviations_, {}, &Abbreviation::code))
    std::ranges::stable_sort(abbreviations_, {}, &Abbreviation::code);
}

bool AbbreviationTable::ReadAttributes(ByteCursor& cursor, Abbreviation& abbreviation) {
  abbreviation.firstAttribute = static_cast<std::uint32_t>(attributes_.size());
  abbreviation.firstStep = static_cast<std::uint32_t>(steps_.size());
  bool hasSibling = false;
  for (;;) {
    const auto name = static_cast<Attribute>(cursor.ReadLeb());
    const auto form = static_cast<Form>(cursor.ReadLeb());
    if (cursor.HasFailed() || attributes_.size() >= kMostAttributes) return false;
    if (name == 0 && form == 0) break;
    const std::int64_t constant = form == DW_FORM_implicit_const ? ReadSignedLeb(cursor) : 0;
    attributes_.push_back({name, form, constant});
    hasSibling = hasSibling || name == DW_AT_sibling;
    const Step step = StepOver(form);
    const bool joins = step.way == Way::Fixed && steps_.size() > abbreviation.firstStep &&
                       steps_.back().way == Way::Fixed;
    if (joins)
      steps_.back().size += step.size;
    else
      steps_.push_back(step);
  }
  abbreviation.attributes =
      static_cast<std::uint32_t>(attributes_.size()) - abbreviation.firstAttribute;
  abbreviation.steps = static_cast<std::uint32_t>(steps_.size()) - abbreviation.firstStep;
  abbreviation.hasNoCode = hasSibling && abbreviation.hasChildren && HasNoCode(abbreviation.tag);
  return true;
}

const Abbreviation* AbbreviationTable::Find(std::uint64_t code) const {
  // Mostly they are numbered from 1 on.
  if (code - 1 < abbreviations_.size() && abbreviations_[code - 1].code == code)
    return &abbreviations_[code - 1];
  const auto found = std::ranges::lower_bound(abbreviations_, code, {}, &Abbreviation::code);
  return found == abbreviations_.end() || found->code != code ? nullptr : &*found;
}

void AbbreviationTable::Skip(const Abbreviation& abbreviation, ByteCursor& cursor) const {
  for (const Step step : std::span(steps_).subspan(abbreviation.firstStep, abbreviation.steps))
    Skip(step, cursor);
}

void AbbreviationTable::Skip(Form form, ByteCursor& cursor) const { Skip(StepOver(form), cursor); }

AbbreviationTable::Step AbbreviationTable::StepOver(Form form) const {
  if (const auto size = getFixedFormByteSize(form, form_)) return {Way::Fixed, *size};
  switch (form) {
    case DW_FORM_sdata:
    case DW_FORM_udata:
    case DW_FORM_ref_udata:
    case DW_FORM_strx:
    case DW_FORM_addrx:
    case DW_FORM_loclistx:
    case DW_FORM_rnglistx:
    case DW_FORM_GNU_addr_index:
    case DW_FORM_GNU_str_index:
      return {Way::Leb, 0};
    case DW_FORM_LLVM_addrx_offset:
      return {Way::LebAndFixed, 4};
    case DW_FORM_string:
      return {Way::Text, 0};
    case DW_FORM_block1:
      return {Way::Block, 1};
    case DW_FORM_block2:
      return {Way::Block, 2};
    case DW_FORM_block4:
      return {Way::Block, 4};
    case DW_FORM_block:
    case DW_FORM_exprloc:
      return {Way::BlockLeb, 0};
    case DW_FORM_indirect:
      return {Way::Indirect, 0};
    default:
      return {Way::Unknown, 0};
  }
}

void AbbreviationTable::Skip(Step step, ByteCursor& cursor) const {
  switch (step.way) {
    case Way::Fixed:
      return cursor.Skip(step.size);
    case Way::Leb:
      return cursor.SkipLeb();
    case Way::LebAndFixed:
      cursor.SkipLeb();
      return cursor.Skip(step.size);
    case Way::Text:
      return (void)cursor.ReadText();
    case Way::Block:
      return cursor.Skip(cursor.Read(step.size));
    case Way::BlockLeb:
      return cursor.Skip(cursor.ReadLeb());
    case Way::Indirect: {
      const auto form = static_cast<Form>(cursor.ReadLeb());
      // One that leads to another is no compiler's, and could nest without end.
      if (form == DW_FORM_indirect || form == DW_FORM_implicit_const) return cursor.Fail();
      return Skip(StepOver(form), cursor);
    }
    case Way::Unknown:
      return cursor.Fail();
  }
}

}  // namespace tarvo::symbolreader
