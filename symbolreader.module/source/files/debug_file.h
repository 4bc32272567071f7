#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "files/image_range.h"
#include "tarvo/result.h"

namespace tarvo::symbolreader {

/// What an open debug file says of itself.
struct DebugFileFacts {
  std::string path;
  ImageFormat format = ImageFormat::Elf;
  ImageRange image{};          ///< of a PDB alone not known yet
  std::string architecture{};  ///< LLVM's name, "x86_64" or "aarch64"
  /// Names the contents, in lower-case hexadecimal: the build id, the UUID or, where the file has
  /// none, a hash of all its bytes ("hash" in front); of a PE file with a PDB the one that the PDB
  /// must have.
  std::string id{};
  std::string pdbPath{};  ///< the PDB that has the lines; empty where DWARF sections have them
};

/// A debug file that is open, mapped and looked over: of the right architecture and with debug
/// information. Immutable; any number of threads may use it.
///
/// Nothing of this header is LLVM's; the pieces that read debug information see `Contents`, from
/// "debuginfo/debug_file_contents.h".
class DebugFile {
 public:
  struct Contents;

  DebugFile(DebugFileFacts facts, std::unique_ptr<Contents> contents);
  ~DebugFile();
  DebugFile(const DebugFile&) = delete;
  DebugFile& operator=(const DebugFile&) = delete;

  [[nodiscard]] const DebugFileFacts& Facts() const noexcept { return facts_; }
  [[nodiscard]] const Contents& Inside() const noexcept { return *contents_; }

 private:
  DebugFileFacts facts_;
  std::unique_ptr<Contents> contents_;
};

/// What is asked of a debug file.
struct DebugFileRequest {
  std::string architecture{};     ///< empty: that of the file, which must have one only
  std::string id{};               ///< empty: any
  bool takesSymbolTable = false;  ///< whether a symbol table will do
  std::string platform{};         ///< "linux", "macos" or "windows"; empty: any
};

/// Opens a Mach-O (of a universal one the slice for the architecture), ELF or PE file or a PDB. A
/// PE file without DWARF needs its PDB in the same directory, under the name that it gives. PDBs
/// are not looked into here.
///
/// A file error that names the file, what was found and what was expected when it cannot be read,
/// is of none of these formats or damaged or has no debug information. An illegal-argument error
/// when it is for another platform or architecture or has another id, and for an architecture that
/// nobody knows. Only regular files are opened, so nothing blocks.
Result<std::shared_ptr<const DebugFile>> OpenDebugFile(const std::string& path,
                                                       const DebugFileRequest& request);

}  // namespace tarvo::symbolreader
