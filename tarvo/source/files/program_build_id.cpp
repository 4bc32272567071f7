#include "files/program_build_id.h"

#include <link.h>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace tarvo {
namespace {

constexpr std::string_view kOwner{"GNU\0", 4};

std::size_t Padded(std::size_t size) { return (size + 3) / 4 * 4; }

std::string Hexadecimal(std::string_view bytes) {
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
  }
  return text;
}

/// Among notes as the System V ABI lays them out (gABI 4.1, chapter 5, "Note Section").
std::string FindBuildId(std::string_view notes) {
  while (notes.size() > sizeof(ElfW(Nhdr))) {
    ElfW(Nhdr) note;
    std::memcpy(&note, notes.data(), sizeof(note));
    notes.remove_prefix(sizeof(note));
    const std::size_t content = Padded(note.n_namesz);
    if (content > notes.size() || note.n_descsz > notes.size() - content) return {};
    if (note.n_type == NT_GNU_BUILD_ID && notes.substr(0, note.n_namesz) == kOwner)
      return Hexadecimal(notes.substr(content, note.n_descsz));
    notes.remove_prefix(std::min(content + Padded(note.n_descsz), notes.size()));
  }
  return {};
}

}  // namespace

std::string ProgramBuildId() {
  std::string id;
  // The program is the first in the loader's list.
  dl_iterate_phdr(
      [](dl_phdr_info* program, std::size_t, void* found) {
        for (std::size_t i = 0; i < program->dlpi_phnum; ++i) {
          const ElfW(Phdr)& header = program->dlpi_phdr[i];
          if (header.p_type != PT_NOTE) continue;
          const auto* notes = reinterpret_cast<const char*>(program->dlpi_addr + header.p_vaddr);
          auto& text = *static_cast<std::string*>(found);
          text = FindBuildId({notes, header.p_memsz});
          if (!text.empty()) break;
        }
        return 1;
      },
      &id);
  return id;
}

}  // namespace tarvo
