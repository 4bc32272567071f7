#pragma once

#include <llvm/BinaryFormat/Dwarf.h>

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "indexer/dwarf/byte_cursor.h"

namespace tarvo::symbolreader {

/// An attribute of an abbreviation.
struct AttributeSpec {
  llvm::dwarf::Attribute name{};
  llvm::dwarf::Form form{};
  std::int64_t constant = 0;  ///< of DW_FORM_implicit_const
};

/// How an entry of the debug information is laid out.
struct Abbreviation {
  std::uint64_t code = 0;
  llvm::dwarf::Tag tag{};
  bool hasChildren = false;
  bool isFunction = false;  ///< a function, or one that is inlined
  /// Whether the entry and all below it have no code, so that its sibling is what comes next.
  bool hasNoCode = false;
  std::uint32_t firstAttribute = 0;
  std::uint32_t attributes = 0;
  std::uint32_t firstStep = 0;
  std::uint32_t steps = 0;
};

/// One table of abbreviations, laid out for walking over entries quickly: attributes that nobody
/// asks for are passed over by a few steps, those of fixed size together in one.
class AbbreviationTable {
 public:
  /// The table at `offset` of the section, for units with `form`. What cannot be read ends it.
  AbbreviationTable(std::string_view section, std::uint64_t offset, llvm::dwarf::FormParams form);

  /// Null where there is none of that code.
  [[nodiscard]] const Abbreviation* Find(std::uint64_t code) const;
  [[nodiscard]] std::span<const AttributeSpec> Attributes(const Abbreviation& abbreviation) const {
    return std::span(attributes_).subspan(abbreviation.firstAttribute, abbreviation.attributes);
  }
  /// Moves over the entry's attributes.
  void Skip(const Abbreviation& abbreviation, ByteCursor& cursor) const;
  /// Moves over one value.
  void Skip(llvm::dwarf::Form form, ByteCursor& cursor) const;

 private:
  enum class Way : std::uint8_t {
    Fixed,
    Leb,
    LebAndFixed,
    Text,
    Block,
    BlockLeb,
    Indirect,
    Unknown
  };
  struct Step {
    Way way = Way::Fixed;
    std::uint32_t size = 0;  ///< of Fixed; of Block the size of its length
  };

  [[nodiscard]] Step StepOver(llvm::dwarf::Form form) const;
  void Skip(Step step, ByteCursor& cursor) const;
  bool ReadAttributes(ByteCursor& cursor, Abbreviation& abbreviation);

  llvm::dwarf::FormParams form_;
  std::vector<Abbreviation> abbreviations_;  ///< ascending by code
  std::vector<AttributeSpec> attributes_;
  std::vector<Step> steps_;
};

}  // namespace tarvo::symbolreader
