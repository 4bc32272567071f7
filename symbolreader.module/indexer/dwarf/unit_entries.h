#pragma once

#include <llvm/ADT/StringRef.h>
#include <llvm/DebugInfo/DWARF/DWARFContext.h>
#include <llvm/DebugInfo/DWARF/DWARFUnit.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <tuple>
#include <vector>

#include "indexer/dwarf/abbreviations.h"

/// Entries of the debug information, read straight from the section: no tree is made of them, so
/// that a unit takes no memory beyond what is asked of it, and any thread may read entries of any
/// unit. LLVM's units serve for their headers, and for what hangs on the unit's first entry
/// (addresses, strings and ranges by index), which must have been extracted before.
namespace tarvo::symbolreader {

/// The value of an attribute as it stands in the entry.
struct RawValue {
  llvm::dwarf::Form form{};  ///< 0 where the entry has no such attribute
  std::uint64_t number = 0;  ///< what stands there: an offset, an index, a constant
  llvm::StringRef text{};    ///< of DW_FORM_string
  explicit operator bool() const { return form != 0; }
};

/// What an entry says that can be a function.
struct FunctionEntry {
  std::uint64_t offset = 0;
  RawValue lowPc{};
  RawValue highPc{};
  RawValue ranges{};
  RawValue origin{};       ///< DW_AT_abstract_origin
  RawValue declaration{};  ///< DW_AT_specification: the entry that this one completes
  RawValue linkageName{};
  RawValue name{};
  RawValue callFile{};
  RawValue callLine{};
};

class UnitDirectory;

/// A unit whose entries are read.
struct UnitEntries {
  llvm::DWARFUnit* unit = nullptr;
  std::shared_ptr<const AbbreviationTable> abbreviations;
  UnitDirectory* directory = nullptr;

  /// The section's bytes up to the unit's end: offsets count in the section.
  [[nodiscard]] std::string_view Bytes() const;
  /// Where the first entry is.
  [[nodiscard]] std::uint64_t FirstEntry() const {
    return unit->getOffset() + unit->getHeaderSize();
  }

  /// Reads the attributes of a function's entry from `cursor`, which stands behind its code.
  [[nodiscard]] FunctionEntry ReadFunction(const Abbreviation& abbreviation, std::uint64_t offset,
                                           ByteCursor& cursor) const;
  /// The value of DW_AT_sibling as an offset of the section, the cursor as above; 0 without one.
  [[nodiscard]] std::uint64_t ReadSibling(const Abbreviation& abbreviation,
                                          ByteCursor& cursor) const;

  /// What the unit's paths are relative to; empty where it does not say.
  [[nodiscard]] llvm::StringRef CompilationDirectory() const;

  /// The text that a value stands for; empty where it is none or cannot be read.
  [[nodiscard]] llvm::StringRef TextOf(const RawValue& value) const;
  /// An address, a constant; nothing where the value is none or cannot be read.
  [[nodiscard]] std::optional<std::uint64_t> AddressOf(const RawValue& value) const;
  [[nodiscard]] static std::optional<std::uint64_t> ConstantOf(const RawValue& value);
};

/// All units of one section of debug information, and the tables of abbreviations that several of
/// them use. Any thread may ask.
class UnitDirectory {
 public:
  /// `abbreviations` is the section of the units' tables; `supplementary` the units of the file
  /// with what this one shares with others, or null; `strings`, of a supplementary file, the
  /// section of the texts that others name: it may hold nothing else. All live as long as the
  /// directory.
  UnitDirectory(std::vector<llvm::DWARFUnit*> units, llvm::StringRef abbreviations,
                UnitDirectory* supplementary = nullptr, llvm::StringRef strings = {});

  [[nodiscard]] const std::vector<llvm::DWARFUnit*>& Units() const { return units_; }
  [[nodiscard]] UnitDirectory* Supplementary() const { return supplementary_; }
  [[nodiscard]] llvm::StringRef Strings() const { return strings_; }

  /// The unit to be walked: its table is kept only where others use it too.
  [[nodiscard]] UnitEntries Open(llvm::DWARFUnit& unit);
  /// The unit around `offset`; none where there is none. Its table is kept.
  [[nodiscard]] UnitEntries OpenAround(std::uint64_t offset);

 private:
  using Key = std::tuple<std::uint64_t, std::uint16_t, std::uint8_t, llvm::dwarf::DwarfFormat>;

  [[nodiscard]] std::shared_ptr<const AbbreviationTable> Read(const llvm::DWARFUnit& unit) const;
  [[nodiscard]] std::shared_ptr<const AbbreviationTable> Share(const llvm::DWARFUnit& unit);

  llvm::StringRef section_;
  llvm::StringRef strings_;
  UnitDirectory* supplementary_;
  std::vector<llvm::DWARFUnit*> units_;  ///< ascending by offset
  std::map<Key, unsigned> users_;
  std::mutex mutex_;
  std::map<Key, std::shared_ptr<const AbbreviationTable>> shared_;
};

/// A function's linkage name, or without one its plain name; empty where there is none. Names stand
/// in the entry itself or in those that it refers to: in another place of the unit, in another
/// unit, in the supplementary file.
[[nodiscard]] llvm::StringRef NameOf(const UnitEntries& unit, const FunctionEntry& entry);

}  // namespace tarvo::symbolreader
