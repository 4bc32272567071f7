#include "toolkit/pack/debug_information/elf_file.h"

#include <llvm/ADT/StringExtras.h>
#include <llvm/Object/BuildID.h>
#include <llvm/Object/ELFObjectFile.h>
#include <llvm/Support/CRC.h>
#include <llvm/Support/Endian.h>
#include <llvm/Support/MemoryBuffer.h>

#include <memory>
#include <string_view>
#include <vector>

#include "tarvo/format.h"
#include "toolkit/base/regular_file.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/pack/debug_information/elf_debug_sections.h"

namespace tarvo::toolkit {
namespace {

using llvm::object::ELFObjectFile;
using llvm::object::ELFObjectFileBase;

constexpr SourceFile kElfFile{"command/pack/elf_operations"};

Error LlvmError(SourceLocation where, const std::string& path, llvm::Error error) {
  return Error::IllegalState(where, Format("Cannot pack \"@\": @", SafeText(path),
                                           SafeText(llvm::toString(std::move(error)))));
}

/// A file mapped, and what LLVM knows of it.
struct MappedElf {
  std::unique_ptr<llvm::MemoryBuffer> bytes;
  std::unique_ptr<ELFObjectFileBase> object;
};

Result<std::unique_ptr<llvm::MemoryBuffer>> MapFile(const std::string& path) {
  const auto opened = OpenRegularFile(path);
  if (!opened) return opened.GetError();
  auto mapped = llvm::MemoryBuffer::getOpenFile(fileno(opened->file.get()), path, opened->size,
                                                /*RequiresNullTerminator=*/false);
  if (!mapped) return LlvmError(kElfFile.Here(), path, llvm::errorCodeToError(mapped.getError()));
  return std::move(*mapped);
}

Result<MappedElf> MapElf(const std::string& path) {
  auto bytes = MapFile(path);
  if (!bytes) return bytes.GetError();
  auto object = llvm::object::ObjectFile::createELFObjectFile((*bytes)->getMemBufferRef());
  if (!object) return LlvmError(kElfFile.Here(), path, object.takeError());
  std::unique_ptr<ELFObjectFileBase> elf(llvm::cast<ELFObjectFileBase>(object->release()));
  return MappedElf{*std::move(bytes), std::move(elf)};
}

/// Reads the facts of a file of one word size and byte order.
template <typename ElfType>
class FactsReader {
 public:
  explicit FactsReader(const llvm::object::ELFFile<ElfType>& file) : file_(file) {}

  llvm::Expected<ElfFacts> Read() {
    auto sections = file_.sections();
    if (!sections) return sections.takeError();
    for (const Section& section : *sections)
      if (llvm::Error error = ReadSection(section)) return error;
    auto segments = file_.program_headers();
    if (!segments) return segments.takeError();
    for (const auto& segment : *segments)
      facts_.hasInterpreter |= segment.p_type == llvm::ELF::PT_INTERP;
    facts_.kind = Kind();
    return facts_;
  }

 private:
  using Section = typename ElfType::Shdr;

  llvm::Error ReadSection(const Section& section) {
    auto name = file_.getSectionName(section);
    if (!name) return name.takeError();
    const bool hasContent = section.sh_type != llvm::ELF::SHT_NOBITS && section.sh_size > 0;
    facts_.holdsCode |= hasContent && (section.sh_flags & llvm::ELF::SHF_EXECINSTR) != 0;
    facts_.hasDebugInformation |= hasContent && (*name == ".debug_info" || *name == ".zdebug_info");
    isEmptied_ |= *name == ".dynamic" && section.sh_type == llvm::ELF::SHT_NOBITS;
    if (section.sh_type == llvm::ELF::SHT_DYNAMIC) return ReadDynamic(section);
    if (*name == ".gnu_debuglink" && hasContent) return ReadDebugLink(section);
    if (*name == ".note.gnu.build-id" && hasContent) return ReadBuildId(section);
    return llvm::Error::success();
  }

  llvm::Error ReadDynamic(const Section& section) {
    auto entries = file_.template getSectionContentsAsArray<typename ElfType::Dyn>(section);
    if (!entries) return entries.takeError();
    auto names = file_.getLinkAsStrtab(section);
    if (!names) return names.takeError();
    for (const auto& entry : *entries) {
      if (entry.getTag() == llvm::ELF::DT_FLAGS_1)
        isMarkedProgram_ = (entry.getVal() & llvm::ELF::DF_1_PIE) != 0;
      if (entry.getTag() == llvm::ELF::DT_SONAME && entry.getVal() < names->size())
        facts_.sharedName = names->substr(entry.getVal()).split('\0').first.str();
    }
    return llvm::Error::success();
  }

  /// LLVM looks in segments, which supplementary files have none of. Three numbers (the sizes of
  /// name and id, the type), then "GNU" with its zero, then the id.
  llvm::Error ReadBuildId(const Section& section) {
    constexpr std::size_t kStart = 16;
    auto bytes = file_.getSectionContents(section);
    if (!bytes) return bytes.takeError();
    if (bytes->size() > kStart)
      facts_.buildId = llvm::toHex(bytes->drop_front(kStart), /*LowerCase=*/true);
    return llvm::Error::success();
  }

  /// A name, NULs up to a multiple of four bytes, and the checksum.
  llvm::Error ReadDebugLink(const Section& section) {
    auto bytes = file_.getSectionContents(section);
    if (!bytes) return bytes.takeError();
    const llvm::StringRef text(reinterpret_cast<const char*>(bytes->data()), bytes->size());
    const std::size_t nameSize = text.find('\0');
    const std::size_t checksum = nameSize == llvm::StringRef::npos ? 0 : (nameSize + 4) / 4 * 4;
    if (nameSize == 0 || checksum == 0 || checksum + 4 > text.size())
      return llvm::createStringError("a damaged section .gnu_debuglink");
    facts_.debugLink = {text.substr(0, nameSize).str(),
                        llvm::support::endian::read32(text.data() + checksum, ElfType::Endianness)};
    return llvm::Error::success();
  }

  ElfFacts::Kind Kind() const {
    switch (file_.getHeader().e_type) {
      case llvm::ELF::ET_EXEC:
        return ElfFacts::Kind::Program;
      case llvm::ELF::ET_REL:
        return ElfFacts::Kind::ObjectFile;
      case llvm::ELF::ET_DYN:
        if (isEmptied_) return ElfFacts::Kind::DebugFile;
        return isMarkedProgram_ || (facts_.hasInterpreter && facts_.sharedName.empty())
                   ? ElfFacts::Kind::Program
                   : ElfFacts::Kind::Library;
      default:
        return ElfFacts::Kind::Other;
    }
  }

  const llvm::object::ELFFile<ElfType>& file_;
  ElfFacts facts_;
  bool isMarkedProgram_ = false;
  bool isEmptied_ = false;
};

/// `read` of the file in its word size and byte order.
template <typename Read>
auto WithElf(const ELFObjectFileBase& object, Read read) {
  using namespace llvm::object;
  if (const auto* elf = llvm::dyn_cast<ELF64LEObjectFile>(&object)) return read(elf->getELFFile());
  if (const auto* elf = llvm::dyn_cast<ELF32LEObjectFile>(&object)) return read(elf->getELFFile());
  if (const auto* elf = llvm::dyn_cast<ELF64BEObjectFile>(&object)) return read(elf->getELFFile());
  return read(llvm::cast<ELF32BEObjectFile>(object).getELFFile());
}

}  // namespace

Result<ElfFacts> ReadElfFacts(const std::string& path) {
  const auto elf = MapElf(path);
  if (!elf) return elf.GetError();
  auto facts = WithElf(*elf->object, [](const auto& file) { return FactsReader(file).Read(); });
  if (!facts) return LlvmError(kElfFile.Here(), path, facts.takeError());
  const auto id = llvm::object::getBuildID(elf->object.get());
  if (!id.empty()) facts->buildId = llvm::toHex(id, /*LowerCase=*/true);
  return *std::move(facts);
}

Result<EntryContent> DebugSectionsOf(const std::string& path) {
  const auto elf = MapElf(path);
  if (!elf) return elf.GetError();
  auto content = WithElf(*elf->object, [](const auto& file) { return KeepDebugSections(file); });
  if (!content) return LlvmError(kElfFile.Here(), path, content.takeError());
  content->path = path;
  return *std::move(content);
}

Result<std::uint32_t> FileChecksum(const std::string& path) {
  const auto opened = OpenRegularFile(path);
  if (!opened) return opened.GetError();
  std::vector<std::uint8_t> piece(1 << 18);
  std::uint32_t checksum = 0;
  while (const std::size_t size = std::fread(piece.data(), 1, piece.size(), opened->file.get()))
    checksum = llvm::crc32(checksum, llvm::ArrayRef(piece.data(), size));
  return checksum;
}

}  // namespace tarvo::toolkit
