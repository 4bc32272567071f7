#pragma once

#include <llvm/Object/ELF.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "toolkit/pack/archive/entry_content.h"

namespace tarvo::toolkit {

/// Lays an ELF file out anew without what a process loads: sections keep their numbers and their
/// headers, those that are loaded lose their contents (but notes, which hold the build id).
template <typename ElfType>
class DebugSectionsLayout {
 public:
  explicit DebugSectionsLayout(const llvm::object::ELFFile<ElfType>& file) : file_(file) {}

  llvm::Expected<EntryContent> Make() {
    auto sections = file_.sections();
    if (!sections) return sections.takeError();
    auto segments = file_.program_headers();
    if (!segments) return segments.takeError();
    Header header = file_.getHeader();
    const std::uint64_t segmentBytes = segments->size() * sizeof(Segment);
    offset_ = sizeof(Header) + segmentBytes;
    for (const Section& section : *sections)
      if (llvm::Error error = Place(section)) return error;
    AlignTo(kTableAlignment);
    header.e_phoff = segments->empty() ? 0 : sizeof(Header);
    header.e_shoff = static_cast<Number>(offset_);
    EntryContent content;
    content.Append(BytesOf(header));
    for (Segment segment : *segments) content.Append(BytesOf(Moved(segment, *sections)));
    content.runs.insert(content.runs.end(), contents_.runs.begin(), contents_.runs.end());
    std::string table;
    for (const Section& section : placed_) table += BytesOf(section);
    content.Append(std::move(table));
    return content;
  }

 private:
  using Number = typename ElfType::uint;  // as wide as the file's addresses
  using Header = typename ElfType::Ehdr;
  using Section = typename ElfType::Shdr;
  using Segment = typename ElfType::Phdr;
  static constexpr std::uint64_t kTableAlignment = 8;
  static constexpr std::uint64_t kLargestAlignment = 1 << 16;

  template <typename Record>
  static std::string BytesOf(const Record& record) {
    return {reinterpret_cast<const char*>(&record), sizeof record};
  }

  void AlignTo(std::uint64_t alignment) {
    const std::uint64_t gap = (alignment - offset_ % alignment) % alignment;
    contents_.AppendZeros(gap);
    offset_ += gap;
  }

  static bool IsKept(const Section& section) {
    return (section.sh_flags & llvm::ELF::SHF_ALLOC) == 0 || section.sh_type == llvm::ELF::SHT_NOTE;
  }

  llvm::Error Place(const Section& section) {
    Section& placed = placed_.emplace_back(section);
    if (section.sh_type == llvm::ELF::SHT_NULL) return llvm::Error::success();
    if (!IsKept(section)) placed.sh_type = llvm::ELF::SHT_NOBITS;
    if (placed.sh_type != llvm::ELF::SHT_NOBITS) {
      // LLVM's function refuses one that lies outside of the file.
      auto bytes = file_.getSectionContents(section);
      if (!bytes) return bytes.takeError();
      AlignTo(std::clamp<std::uint64_t>(section.sh_addralign, 1, kLargestAlignment));
      contents_.AppendFile(section.sh_offset, section.sh_size);
    }
    placed.sh_offset = static_cast<Number>(offset_);
    if (placed.sh_type != llvm::ELF::SHT_NOBITS) offset_ += section.sh_size;
    return llvm::Error::success();
  }

  /// The header of a segment, which has contents only where those are notes.
  Segment Moved(Segment segment, llvm::ArrayRef<Section> sections) const {
    const std::uint64_t start = segment.p_offset;
    const std::uint64_t size = segment.p_filesz;
    segment.p_filesz = 0;
    if (segment.p_type != llvm::ELF::PT_NOTE) return segment;
    for (std::size_t i = 0; i < sections.size(); ++i) {
      const std::uint64_t offset = sections[i].sh_offset;
      if (sections[i].sh_type != llvm::ELF::SHT_NOTE || offset < start || offset - start >= size)
        continue;
      if (segment.p_filesz == 0) segment.p_offset = placed_[i].sh_offset;
      segment.p_filesz = placed_[i].sh_offset + placed_[i].sh_size - segment.p_offset;
    }
    return segment;
  }

  const llvm::object::ELFFile<ElfType>& file_;
  std::vector<Section> placed_;
  EntryContent contents_;
  std::uint64_t offset_ = 0;
};

template <typename ElfType>
llvm::Expected<EntryContent> KeepDebugSections(const llvm::object::ELFFile<ElfType>& file) {
  return DebugSectionsLayout(file).Make();
}

}  // namespace tarvo::toolkit
