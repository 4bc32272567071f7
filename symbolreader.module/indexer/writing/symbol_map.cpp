#include "indexer/writing/symbol_map.h"

#include <llvm/Object/ELFObjectFile.h>
#include <llvm/Object/SymbolSize.h>

#include <tuple>

namespace tarvo::symbolreader {
namespace {

using namespace llvm::object;

/// The value, or a default one for what cannot be read.
template <typename T>
T ValueOr(llvm::Expected<T> value, T fallback) {
  if (value) return *value;
  llvm::consumeError(value.takeError());
  return fallback;
}

struct FileSymbol {
  std::uint64_t index = 0;
  llvm::StringRef name;
};

struct Symbol {
  std::uint64_t address = 0;
  std::uint64_t size = 0;
  llvm::StringRef name;
  std::uint64_t localIndex = 0;  ///< of an ELF file's local symbol, else 0
  std::size_t position = 0;      ///< in the table
};

bool IsWanted(const ObjectFile& object, const SymbolRef& symbol, const SectionRef& section) {
  if (!object.isELF()) {
    const auto type = ValueOr(symbol.getType(), SymbolRef::ST_Unknown);
    return type == SymbolRef::ST_Function || type == SymbolRef::ST_Data;
  }
  if ((ELFSectionRef(section).getFlags() & llvm::ELF::SHF_ALLOC) == 0) return false;
  const std::uint8_t type = ELFSymbolRef(symbol).getELFType();
  // Functions written in assembler often have no type.
  const bool isNamed = type == llvm::ELF::STT_NOTYPE || type == llvm::ELF::STT_FUNC ||
                       type == llvm::ELF::STT_OBJECT || type == llvm::ELF::STT_GNU_IFUNC;
  return isNamed &&
         (ValueOr(symbol.getFlags(), std::uint32_t{0}) & SymbolRef::SF_FormatSpecific) == 0;
}

/// One pass over the table.
class Reader {
 public:
  explicit Reader(const ObjectFile& object) : object_(object) {}

  void Read(const SymbolRef& symbol, std::uint64_t size) {
    llvm::StringRef name = ValueOr(symbol.getName(), llvm::StringRef());
    const std::uint64_t index = object_.isELF() ? symbol.getRawDataRefImpl().d.b : 0;
    const section_iterator section = ValueOr(symbol.getSection(), object_.section_end());
    if (section == object_.section_end()) {
      if (object_.isELF() && ELFSymbolRef(symbol).getELFType() == llvm::ELF::STT_FILE)
        files_.push_back({index, name});
      return;
    }
    if (!IsWanted(object_, symbol, *section)) return;
    auto address = symbol.getAddress();
    if (!address) return llvm::consumeError(address.takeError());
    if (object_.isMachO()) name.consume_front("_");
    const bool isLocal =
        object_.isELF() && ELFSymbolRef(symbol).getBinding() == llvm::ELF::STB_LOCAL;
    symbols_.push_back({*address, size, name, isLocal ? index : 0, symbols_.size()});
  }

  std::vector<SymbolInterval> Finish() {
    std::ranges::sort(symbols_, {}, [](const Symbol& symbol) {
      return std::tuple(symbol.address, symbol.size, symbol.position);
    });
    std::vector<SymbolInterval> intervals;
    for (std::size_t i = 0; i < symbols_.size(); ++i) {
      const Symbol& symbol = symbols_[i];
      const bool isLast = i + 1 == symbols_.size();
      if (!isLast && symbols_[i + 1].address == symbol.address) continue;
      const std::uint64_t next = isLast ? kNoAddress : symbols_[i + 1].address;
      const std::uint64_t length = std::min(next - symbol.address, symbol.size);
      const std::uint64_t end = symbol.size == 0 ? next : symbol.address + length;
      intervals.push_back({symbol.address, end, symbol.name, FileOf(symbol)});
    }
    return intervals;
  }

 private:
  [[nodiscard]] llvm::StringRef FileOf(const Symbol& symbol) const {
    if (symbol.localIndex == 0) return {};
    const auto behind = std::ranges::upper_bound(files_, symbol.localIndex, {}, &FileSymbol::index);
    return behind == files_.begin() ? llvm::StringRef() : std::prev(behind)->name;
  }

  const ObjectFile& object_;
  std::vector<Symbol> symbols_;
  std::vector<FileSymbol> files_;
};

}  // namespace

std::vector<SymbolInterval> ReadSymbols(const ObjectFile& object) {
  Reader reader(object);
  for (const auto& [symbol, size] : computeSymbolSizes(object)) reader.Read(symbol, size);
  return reader.Finish();
}

std::vector<AddressInterval> ReadTextSections(const ObjectFile& object) {
  std::vector<AddressInterval> sections;
  for (const SectionRef& section : object.sections()) {
    const std::uint64_t start = section.getAddress();
    const std::uint64_t end = start + section.getSize();
    if (section.isText() && end > start) sections.push_back({start, end});
  }
  std::ranges::sort(sections, {}, &AddressInterval::start);
  std::uint64_t reached = 0;
  for (AddressInterval& section : sections) {
    section.start = std::max(section.start, std::min(reached, section.end));
    reached = std::max(reached, section.end);
  }
  std::erase_if(sections,
                [](const AddressInterval& section) { return section.start >= section.end; });
  return sections;
}

}  // namespace tarvo::symbolreader
