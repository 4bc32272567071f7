#include <llvm/ADT/StringExtras.h>
#include <llvm/Object/BuildID.h>
#include <llvm/Object/COFF.h>
#include <llvm/Object/CVDebugRecord.h>
#include <llvm/Object/ELFObjectFile.h>
#include <llvm/Object/MachO.h>
#include <llvm/Support/xxhash.h>

#include <algorithm>
#include <cstring>

#include "files/debug_file_contents.h"

namespace tarvo::symbolreader {
namespace {

using namespace llvm::object;

/// Grows from nothing to span all that is added.
class Span {
 public:
  void Add(std::uint64_t start, std::uint64_t size) {
    if (size == 0 || start + size < start) return;
    range_.start = std::min(range_.start, start);
    range_.end = std::max(range_.end, start + size);
  }
  [[nodiscard]] std::optional<ImageRange> Get() const {
    return range_.start < range_.end ? std::optional(range_) : std::nullopt;
  }

 private:
  ImageRange range_{.start = ~std::uint64_t{0}, .end = 0};
};

template <typename ElfType>
std::optional<ImageRange> LoadSegments(const ELFObjectFile<ElfType>& object) {
  auto headers = object.getELFFile().program_headers();
  if (!headers) {
    llvm::consumeError(headers.takeError());
    return std::nullopt;
  }
  Span span;
  for (const auto& header : *headers)
    if (header.p_type == llvm::ELF::PT_LOAD) span.Add(header.p_vaddr, header.p_memsz);
  return span.Get();
}

/// The page zero is no part of the image, and dsymutil gives the segment of the debug sections an
/// address behind it.
bool IsMapped(llvm::StringRef segment) { return segment != "__PAGEZERO" && segment != "__DWARF"; }

template <typename Segment>
void AddSegment(const Segment& segment, Span& span) {
  const llvm::StringRef name(segment.segname, strnlen(segment.segname, sizeof segment.segname));
  if (IsMapped(name)) span.Add(segment.vmaddr, segment.vmsize);
}

std::optional<ImageRange> Segments(const MachOObjectFile& object) {
  Span span;
  for (const auto& command : object.load_commands()) {
    if (command.C.cmd == llvm::MachO::LC_SEGMENT_64)
      AddSegment(object.getSegment64LoadCommand(command), span);
    else if (command.C.cmd == llvm::MachO::LC_SEGMENT)
      AddSegment(object.getSegmentLoadCommand(command), span);
  }
  return span.Get();
}

std::optional<ImageRange> Image(const COFFObjectFile& object) {
  Span span;
  if (const auto* header = object.getPE32PlusHeader())
    span.Add(header->ImageBase, header->SizeOfImage);
  else if (const auto* narrow = object.getPE32Header())
    span.Add(narrow->ImageBase, narrow->SizeOfImage);
  return span.Get();
}

/// Whether a note's place, an offset and a size, lies within `bytes`. LLVM 19 adds the two before
/// it compares them (Object/ELF.h, ELFFile::notes_begin), and reads anywhere where the sum wraps
/// around.
bool IsWithin(std::uint64_t bytes, std::uint64_t offset, std::uint64_t size) {
  return offset <= bytes && size <= bytes - offset;
}

template <typename Elf>
bool AreNotesWithin(const ELFObjectFile<Elf>& object) {
  const auto& file = object.getELFFile();
  const std::uint64_t bytes = file.getBufSize();
  auto segments = file.program_headers();
  auto sections = file.sections();
  const bool areSegments = segments && llvm::all_of(*segments, [&](const auto& segment) {
                             return segment.p_type != llvm::ELF::PT_NOTE ||
                                    IsWithin(bytes, segment.p_offset, segment.p_filesz);
                           });
  const bool areSections = sections && llvm::all_of(*sections, [&](const auto& section) {
                             return section.sh_type != llvm::ELF::SHT_NOTE ||
                                    IsWithin(bytes, section.sh_offset, section.sh_size);
                           });
  if (!segments) llvm::consumeError(segments.takeError());
  if (!sections) llvm::consumeError(sections.takeError());
  return areSegments && areSections;
}

/// The build id or UUID; empty where there is none, or the file says that it lies outside of it.
/// LLVM 19's function for all formats leaves Mach-O out.
BuildIDRef BuildIdOf(const ObjectFile& object) {
  if (const auto* machO = llvm::dyn_cast<MachOObjectFile>(&object)) return machO->getUuid();
  const auto* wide = llvm::dyn_cast<ELF64LEObjectFile>(&object);
  const auto* narrow = llvm::dyn_cast<ELF32LEObjectFile>(&object);
  const bool isElf = object.isELF();
  const bool isSafe = !isElf || (wide != nullptr && AreNotesWithin(*wide)) ||
                      (narrow != nullptr && AreNotesWithin(*narrow));
  return object.isCOFF() || !isSafe ? BuildIDRef() : getBuildID(&object);
}

}  // namespace

std::optional<ImageRange> ImageRangeOf(const ObjectFile& object) {
  if (const auto* elf = llvm::dyn_cast<ELF64LEObjectFile>(&object)) return LoadSegments(*elf);
  if (const auto* elf = llvm::dyn_cast<ELF32LEObjectFile>(&object)) return LoadSegments(*elf);
  if (const auto* machO = llvm::dyn_cast<MachOObjectFile>(&object)) return Segments(*machO);
  if (const auto* coff = llvm::dyn_cast<COFFObjectFile>(&object)) return Image(*coff);
  return std::nullopt;
}

llvm::Expected<bool> HasDwarf(const ObjectFile& object) {
  bool isThere = false;
  for (const SectionRef& section : object.sections()) {
    auto name = section.getName();
    if (!name) return name.takeError();
    llvm::StringRef plain = name->ltrim("._");
    if (!plain.consume_front("debug_") && !plain.consume_front("zdebug_")) continue;
    if (section.isVirtual()) continue;
    // A file cut off in the middle shows here: the contents are outside the mapping.
    auto contents = section.getContents();
    if (!contents) return contents.takeError();
    isThere = isThere || (plain == "info" && !contents->empty());
  }
  return isThere;
}

std::string SignatureText(llvm::ArrayRef<std::uint8_t> signature, std::uint32_t age) {
  return llvm::toHex(signature, /*LowerCase=*/true) + llvm::utohexstr(age, /*LowerCase=*/true);
}

std::optional<PdbReference> PdbReferenceIn(const ObjectFile& object) {
  constexpr std::size_t kHeader = sizeof(llvm::codeview::PDB70DebugInfo);
  const auto* coff = llvm::dyn_cast<COFFObjectFile>(&object);
  if (coff == nullptr) return std::nullopt;
  const llvm::StringRef file = coff->getData();
  for (const debug_directory& entry : coff->debug_directories()) {
    if (entry.Type != llvm::COFF::IMAGE_DEBUG_TYPE_CODEVIEW) continue;
    const llvm::StringRef bytes = file.substr(entry.PointerToRawData, entry.SizeOfData);
    if (bytes.size() <= kHeader || !bytes.starts_with("RSDS")) continue;
    llvm::codeview::PDB70DebugInfo info;
    std::memcpy(&info, bytes.data(), kHeader);
    return PdbReference{.path = bytes.substr(kHeader).split('\0').first.str(),
                        .signature = SignatureText(info.Signature, info.Age)};
  }
  return std::nullopt;
}

std::string IdOf(const ObjectFile& object, llvm::StringRef bytes) {
  constexpr std::size_t kShortestId = 8;
  if (const auto pdb = PdbReferenceIn(object)) return pdb->signature;
  const BuildIDRef id = BuildIdOf(object);
  const bool isZero = llvm::all_of(id, [](std::uint8_t byte) { return byte == 0; });
  if (id.size() >= kShortestId && !isZero) return llvm::toHex(id, /*LowerCase=*/true);
  const llvm::XXH128_hash_t hash = llvm::xxh3_128bits(llvm::arrayRefFromStringRef(bytes));
  return "hash" + llvm::utohexstr(hash.high64, /*LowerCase=*/true, 16) +
         llvm::utohexstr(hash.low64, /*LowerCase=*/true, 16);
}

}  // namespace tarvo::symbolreader
