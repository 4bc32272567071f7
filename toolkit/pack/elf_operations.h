#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "toolkit/pack/elf_file.h"

namespace tarvo::toolkit {

/// The operations of elf_file.h as the library with LLVM has them. It is a library of its own,
/// loaded when the first ELF file is packed: LLVM's own start would take a sixth of the time of
/// `tarvo --version`.
struct ElfOperations {
  Result<ElfFacts> (*readFacts)(const std::string& path);
  Result<void> (*writeDebugSections)(const std::string& path, std::FILE* to);
  Result<std::uint32_t> (*checksum)(const std::string& path);
};

inline constexpr const char* kElfLibrary = "libtarvo-elf.so";
/// The library's one exported object, an ElfOperations.
inline constexpr const char* kElfOperationsSymbol = "tarvoElfOperations";

}  // namespace tarvo::toolkit
