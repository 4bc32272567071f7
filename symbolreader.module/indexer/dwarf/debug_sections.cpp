#include "indexer/dwarf/debug_sections.h"

#include <libdeflate.h>
#include <llvm/Object/Decompressor.h>
#include <llvm/Object/ELFObjectFile.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <span>
#include <string_view>

#include "files/debug_file_contents.h"
#include "indexer/in_parallel.h"
#include "source.h"
#include "tarvo/format.h"

namespace tarvo::symbolreader {
namespace {

using llvm::StringRef;
using llvm::object::Decompressor;
using llvm::object::ObjectFile;

/// Without the point or underscores in front.
constexpr std::array<std::string_view, 10> kWanted = {
    "debug_abbrev",   "debug_addr", "debug_aranges", "debug_info",     "debug_line",
    "debug_line_str", "debug_str",  "debug_ranges",  "debug_rnglists", "debug_str_offsets",
};

constexpr std::array<std::string_view, 7> kWantedOfSplit = {
    "debug_abbrev.dwo",   "debug_cu_index", "debug_info.dwo",       "debug_line.dwo",
    "debug_rnglists.dwo", "debug_str.dwo",  "debug_str_offsets.dwo"};

bool IsWanted(std::string_view name, DebugSections::Kind kind) {
  return kind == DebugSections::Kind::Whole
             ? std::ranges::find(kWanted, name) != kWanted.end()
             : std::ranges::find(kWantedOfSplit, name) != kWantedOfSplit.end();
}

/// zlib cannot make less of its input: what claims more is damaged.
constexpr std::uint64_t kMostExpansion = 1100;

constexpr std::uint32_t kZlib = llvm::ELF::ELFCOMPRESS_ZLIB;

template <typename Header>
bool IsZlib(StringRef packed, std::size_t& headerSize) {
  headerSize = sizeof(Header);
  std::uint32_t type = 0;
  if (packed.size() < sizeof(Header)) return false;
  std::memcpy(&type, packed.data(), sizeof type);
  return type == kZlib;
}

bool UnpackZlib(StringRef packed, std::span<std::uint8_t> to) {
  const std::unique_ptr<libdeflate_decompressor, decltype(&libdeflate_free_decompressor)> unpacker(
      libdeflate_alloc_decompressor(), &libdeflate_free_decompressor);
  return unpacker != nullptr &&
         libdeflate_zlib_decompress(unpacker.get(), packed.data(), packed.size(), to.data(),
                                    to.size(), nullptr) == LIBDEFLATE_SUCCESS;
}

}  // namespace

/// A compressed section, and the memory that it is unpacked into.
class DebugSections::Unpacked {
 public:
  Unpacked(std::string name, StringRef packed) : name_(std::move(name)), packed_(packed) {}
  Unpacked(const Unpacked&) = delete;
  Unpacked& operator=(const Unpacked&) = delete;
  ~Unpacked() {
    if (!bytes_.empty()) munmap(bytes_.data(), bytes_.size());
  }

  /// Whether all of it is there.
  bool Unpack(bool is64Bit) {
    auto header = Decompressor::create(name_, packed_, /*IsLE=*/true, is64Bit);
    if (!header) {
      llvm::consumeError(header.takeError());
      return false;
    }
    const std::uint64_t size = header->getDecompressedSize();
    if (size == 0 || size / kMostExpansion > packed_.size()) return size == 0;
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) return false;
    bytes_ = {static_cast<std::uint8_t*>(memory), size};
    madvise(memory, size, MADV_HUGEPAGE);
    std::size_t headerSize = 0;
    const bool isZlib = is64Bit ? IsZlib<llvm::ELF::Elf64_Chdr>(packed_, headerSize)
                                : IsZlib<llvm::ELF::Elf32_Chdr>(packed_, headerSize);
    if (isZlib) return UnpackZlib(packed_.substr(headerSize), bytes_);
    if (llvm::Error error = header->decompress({bytes_.data(), bytes_.size()})) {
      llvm::consumeError(std::move(error));
      return false;
    }
    return true;
  }

  [[nodiscard]] const std::string& Name() const { return name_; }
  [[nodiscard]] StringRef Packed() const { return packed_; }
  [[nodiscard]] StringRef Bytes() const {
    return {reinterpret_cast<const char*>(bytes_.data()), bytes_.size()};
  }

 private:
  std::string name_;
  StringRef packed_;
  std::span<std::uint8_t> bytes_;
};

DebugSections::DebugSections() = default;
DebugSections::DebugSections(DebugSections&&) noexcept = default;
DebugSections::~DebugSections() = default;

Result<DebugSections> DebugSections::Read(const ObjectFile& object, unsigned threads, Kind kind) {
  DebugSections sections;
  sections.file_ = object.getData();
  for (const llvm::object::SectionRef& section : object.sections()) {
    auto name = section.getName();
    auto contents = section.getContents();
    if (!name || !contents || section.isVirtual()) {
      llvm::consumeError(name.takeError());
      llvm::consumeError(contents.takeError());
      continue;
    }
    const StringRef plain = object.mapDebugSectionName(name->ltrim("._"));
    if (!IsWanted(plain, kind)) continue;
    if (section.isCompressed())
      sections.unpacked_.push_back(std::make_unique<Unpacked>(plain.str(), *contents));
    else
      sections.sections_.try_emplace(plain, llvm::MemoryBuffer::getMemBuffer(*contents, "", false));
  }
  if (auto unpacked = sections.Unpack(object, threads); !unpacked) return unpacked.GetError();
  const auto ignore = [](llvm::Error error) { llvm::consumeError(std::move(error)); };
  sections.context_ = llvm::DWARFContext::create(sections.sections_, object.getBytesInAddress(),
                                                 object.isLittleEndian(), ignore, ignore);
  return sections;
}

/// The largest first, so that it does not come alone at the end.
Result<void> DebugSections::Unpack(const ObjectFile& object, unsigned threads) {
  std::ranges::sort(unpacked_, std::greater(),
                    [](const auto& section) { return section->Packed().size(); });
  std::vector<char> isWhole(unpacked_.size());
  const bool is64Bit = object.getBytesInAddress() == 8;
  InParallel(threads, unpacked_.size(), [&](std::size_t i) {
    isWhole[i] = unpacked_[i]->Unpack(is64Bit) ? 1 : 0;
    LetGo(unpacked_[i]->Packed());
  });
  for (std::size_t i = 0; i < unpacked_.size(); ++i) {
    if (isWhole[i] == 0) {
      return Error::IllegalState(kSource.Here(),
                                 Format("The section @ cannot be unpacked; expected a whole one "
                                        "that fits into memory.",
                                        unpacked_[i]->Name()));
    }
    sections_.try_emplace(unpacked_[i]->Name(),
                          llvm::MemoryBuffer::getMemBuffer(unpacked_[i]->Bytes(), "", false));
  }
  return {};
}

void DebugSections::LetGo(StringRef part) const {
  if (part.begin() < file_.begin() || part.end() > file_.end()) return;
  const auto pageSize = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  const auto start = (reinterpret_cast<std::uintptr_t>(part.begin()) + pageSize - 1) / pageSize;
  const auto end = reinterpret_cast<std::uintptr_t>(part.end()) / pageSize;
  if (start >= end) return;
  madvise(const_cast<char*>(part.begin()) +
              (start * pageSize - reinterpret_cast<std::uintptr_t>(part.begin())),
          (end - start) * pageSize, MADV_DONTNEED);
}

}  // namespace tarvo::symbolreader
