#include "toolkit/pack/debug_information/elf_file.h"

namespace tarvo::toolkit {
namespace {

constexpr SourceFile kElfFileWithoutLlvm{"command/pack/elf_file"};

Error WithoutLlvm(std::source_location where = std::source_location::current()) {
  return Error::IllegalState(kElfFileWithoutLlvm.Here(where),
                             "ELF files cannot be packed: this build was made without LLVM 19.");
}

}  // namespace

Result<ElfFacts> ReadElfFacts(const std::string& /*path*/) { return WithoutLlvm(); }

Result<EntryContent> DebugSectionsOf(const std::string& /*path*/) { return WithoutLlvm(); }

Result<std::uint32_t> FileChecksum(const std::string& /*path*/) { return WithoutLlvm(); }

}  // namespace tarvo::toolkit
