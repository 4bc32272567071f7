#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tarvo/result.h"
#include "toolkit/pack/archive/entry_content.h"

/// What is read from and written of ELF files, by LLVM. Where the build had no LLVM every operation
/// is an illegal-state error that says so (elf_file_without_llvm.cpp).
namespace tarvo::toolkit {

/// Where a stripped file's debug information went: ".gnu_debuglink".
struct DebugLink {
  std::string fileName;
  std::uint32_t checksum = 0;  ///< of the whole separate file, as FileChecksum gives it
};

struct ElfFacts {
  enum class Kind { Program, Library, DebugFile, ObjectFile, Other };
  /// A position-independent program is told from a library by its flag DF_1_PIE, set by linkers
  /// since 2015, or else by the name of an interpreter without a name of its own. DebugFile: the
  /// debug sections of a library or position-independent program whose own facts were taken out.
  Kind kind = Kind::Other;
  std::string sharedName{};  ///< DT_SONAME; empty when there is none
  std::string buildId{};     ///< lower-case hexadecimal; empty when there is none
  std::optional<DebugLink> debugLink{};
  bool hasDebugInformation = false;  ///< a .debug_info, compressed or not, with content
  bool holdsCode = false;            ///< not only a separate debug file
  bool hasInterpreter = false;       ///< names one, as programs do

  [[nodiscard]] bool IsExecutable() const noexcept {
    return kind == Kind::Program || (kind == Kind::DebugFile && hasInterpreter);
  }
};

/// An illegal-state error with the reason when the file is damaged, a file error when it cannot be
/// opened. The file is mapped, not read as a whole.
Result<ElfFacts> ReadElfFacts(const std::string& path);

/// The ELF file `path` without the contents of all that a process loads but its notes, what
/// `objcopy
/// --only-keep-debug` keeps. Headers are made, sections stay in the file until they are read.
Result<EntryContent> DebugSectionsOf(const std::string& path);

/// The checksum that debug links carry: CRC-32 (the one of zip) of all the file's bytes.
Result<std::uint32_t> FileChecksum(const std::string& path);

}  // namespace tarvo::toolkit
