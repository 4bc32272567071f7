#include "toolkit/exec/elf_program.h"

#include <elf.h>

#include <algorithm>
#include <optional>
#include <string_view>

namespace tarvo::toolkit {
namespace {

constexpr SourceFile kElfProgram{"toolkit/exec/elf_program"};

/// Larger dynamic sections and string tables are not read to their end: programs have some hundred
/// entries, and libraries have short names.
constexpr std::uint64_t kMaximumEntries = 4096;
constexpr std::uint64_t kMaximumName = 4096;

template <typename T>
std::optional<T> ReadAt(std::istream& file, std::uint64_t offset) {
  T value{};
  file.clear();
  file.seekg(static_cast<std::streamoff>(offset));
  file.read(reinterpret_cast<char*>(&value), sizeof(value));
  return file ? std::optional(value) : std::nullopt;
}

std::string ReadText(std::istream& file, std::uint64_t offset) {
  std::string text(kMaximumName, '\0');
  file.clear();
  file.seekg(static_cast<std::streamoff>(offset));
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(std::max<std::streamsize>(file.gcount(), 0)));
  return text.substr(0, text.find('\0'));
}

class Reader {
 public:
  Reader(std::istream& file, std::vector<Elf64_Phdr> segments)
      : file_(file), segments_(std::move(segments)) {}

  [[nodiscard]] ElfProgram Program() {
    ElfProgram program;
    if (const Elf64_Phdr* segment = Find(PT_INTERP))
      program.interpreter = ReadText(file_, segment->p_offset);
    const Elf64_Phdr* dynamic = Find(PT_DYNAMIC);
    if (dynamic != nullptr) program.needed = Needed(*dynamic);
    return program;
  }

 private:
  [[nodiscard]] const Elf64_Phdr* Find(std::uint32_t type) const {
    const auto found = std::ranges::find(segments_, type, &Elf64_Phdr::p_type);
    return found == segments_.end() ? nullptr : &*found;
  }

  /// Where in the file an address lies.
  [[nodiscard]] std::uint64_t OffsetOf(std::uint64_t address) const {
    for (const Elf64_Phdr& segment : segments_)
      if (segment.p_type == PT_LOAD && address >= segment.p_vaddr &&
          address - segment.p_vaddr < segment.p_filesz)
        return address - segment.p_vaddr + segment.p_offset;
    return 0;
  }

  [[nodiscard]] std::vector<std::string> Needed(const Elf64_Phdr& dynamic) {
    std::vector<std::uint64_t> names;
    std::uint64_t texts = 0;
    const std::uint64_t count = std::min(dynamic.p_filesz / sizeof(Elf64_Dyn), kMaximumEntries);
    for (std::uint64_t i = 0; i < count; ++i) {
      const auto entry = ReadAt<Elf64_Dyn>(file_, dynamic.p_offset + i * sizeof(Elf64_Dyn));
      if (!entry || entry->d_tag == DT_NULL) break;
      if (entry->d_tag == DT_NEEDED) names.push_back(entry->d_un.d_val);
      if (entry->d_tag == DT_STRTAB) texts = OffsetOf(entry->d_un.d_ptr);
    }
    std::vector<std::string> needed;
    for (const std::uint64_t name : names) needed.push_back(ReadText(file_, texts + name));
    return needed;
  }

  std::istream& file_;
  std::vector<Elf64_Phdr> segments_;
};

}  // namespace

Result<ElfProgram> ReadElfProgram(std::istream& file) {
  const auto cutOff = [] { return Error::IllegalArgument(kElfProgram.Here(), "is cut off"); };
  const auto header = ReadAt<Elf64_Ehdr>(file, 0);
  if (!header) return cutOff();
  if (header->e_ident[EI_CLASS] != ELFCLASS64 || header->e_machine != EM_X86_64)
    return Error::IllegalArgument(kElfProgram.Here(), "is no 64-bit x86 program");
  std::vector<Elf64_Phdr> segments;
  for (unsigned i = 0; i < header->e_phnum; ++i) {
    const auto segment = ReadAt<Elf64_Phdr>(file, header->e_phoff + i * sizeof(Elf64_Phdr));
    if (!segment) return cutOff();
    segments.push_back(*segment);
  }
  return Reader(file, std::move(segments)).Program();
}

}  // namespace tarvo::toolkit
