#include "linux/linux_crashhandler/recording/dynamic_symbols.h"

#include <elf.h>

namespace tarvo::crashhandler {
namespace {

/// The tables of a module's dynamic section.
struct DynamicTables {
  const ElfW(Sym) * symbols = nullptr;
  const char* strings = nullptr;
  std::uint64_t stringsSize = 0;
  const std::uint32_t* gnuHash = nullptr;
  const std::uint32_t* hash = nullptr;
};

/// The loader adds the base to the section's addresses in place, except where the section is
/// read-only (the kernel's vDSO).
template <typename T>
const T* Relocated(const ModuleImage& image, std::uint64_t address) {
  return reinterpret_cast<const T*>(address < image.base ? address + image.base : address);
}

DynamicTables ReadTables(const ModuleImage& image) {
  DynamicTables tables;
  for (std::size_t i = 0; i < image.headerCount; ++i) {
    if (image.headers[i].p_type != PT_DYNAMIC) continue;
    const auto* entry = reinterpret_cast<const ElfW(Dyn)*>(image.base + image.headers[i].p_vaddr);
    for (; entry->d_tag != DT_NULL; ++entry) {
      const std::uint64_t value = entry->d_un.d_val;
      switch (entry->d_tag) {
        case DT_SYMTAB:
          tables.symbols = Relocated<ElfW(Sym)>(image, value);
          break;
        case DT_STRTAB:
          tables.strings = Relocated<char>(image, value);
          break;
        case DT_STRSZ:
          tables.stringsSize = value;
          break;
        case DT_GNU_HASH:
          tables.gnuHash = Relocated<std::uint32_t>(image, value);
          break;
        case DT_HASH:
          tables.hash = Relocated<std::uint32_t>(image, value);
          break;
        default:
          break;
      }
    }
  }
  return tables;
}

/// The best match so far.
struct Search {
  const ModuleImage& image;
  const DynamicTables& tables;
  std::uint64_t address;
  const ElfW(Sym) * best = nullptr;

  void Consider(const ElfW(Sym) & symbol) {
    const unsigned type = ELF64_ST_TYPE(symbol.st_info);
    const bool undefined = symbol.st_shndx == SHN_UNDEF;
    if ((undefined && symbol.st_value == 0) || symbol.st_shndx == SHN_ABS || type == STT_TLS ||
        symbol.st_name >= tables.stringsSize)
      return;
    const std::uint64_t start = image.base + symbol.st_value;
    const bool isStart = (undefined || symbol.st_size == 0) && address == start;
    const bool holds = address >= start && (isStart || address < start + symbol.st_size);
    if (holds && (best == nullptr || best->st_value < symbol.st_value)) best = &symbol;
  }
};

void SearchGnuHash(Search& search) {
  const std::uint32_t* table = search.tables.gnuHash;
  const std::uint32_t bucketCount = table[0];
  const std::uint32_t firstSymbol = table[1];
  const std::uint32_t filterWords = table[2];
  constexpr std::size_t kHeaderWords = 4;
  constexpr std::size_t kWordsInFilterWord = 2;
  const std::uint32_t* buckets = table + kHeaderWords + kWordsInFilterWord * filterWords;
  const std::uint32_t* chains = buckets + bucketCount;
  for (std::uint32_t bucket = 0; bucket < bucketCount; ++bucket) {
    std::uint32_t index = buckets[bucket];
    if (index == 0) continue;
    for (;; ++index) {
      search.Consider(search.tables.symbols[index]);
      const bool last = (chains[index - firstSymbol] & 1) != 0;
      if (last) break;
    }
  }
}

void SearchSysvHash(Search& search) {
  const std::uint32_t symbolCount = search.tables.hash[1];
  for (std::uint32_t i = 0; i < symbolCount; ++i) {
    const ElfW(Sym)& symbol = search.tables.symbols[i];
    const unsigned binding = ELF64_ST_BIND(symbol.st_info);
    const unsigned visibility = ELF64_ST_VISIBILITY(symbol.st_other);
    if ((binding == STB_GLOBAL || binding == STB_WEAK) && visibility != STV_HIDDEN &&
        visibility != STV_INTERNAL)
      search.Consider(symbol);
  }
}

}  // namespace

DynamicSymbol FindDynamicSymbol(const ModuleImage& image, std::uint64_t address) {
  const DynamicTables tables = ReadTables(image);
  if (tables.symbols == nullptr || tables.strings == nullptr) return {};
  Search search{image, tables, address};
  if (tables.gnuHash != nullptr) {
    SearchGnuHash(search);
  } else if (tables.hash != nullptr) {
    SearchSysvHash(search);
  }
  if (search.best == nullptr) return {};
  return {tables.strings + search.best->st_name, image.base + search.best->st_value};
}

}  // namespace tarvo::crashhandler
