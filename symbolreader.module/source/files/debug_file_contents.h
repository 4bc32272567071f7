#pragma once

#include <llvm/Object/MachOUniversal.h>
#include <llvm/Object/ObjectFile.h>
#include <llvm/Support/MemoryBuffer.h>

#include <memory>
#include <optional>
#include <string>

#include "files/debug_file.h"

namespace tarvo::symbolreader {

/// The file as LLVM has it open. The later members refer to the earlier ones.
struct DebugFile::Contents {
  std::unique_ptr<llvm::MemoryBuffer> buffer;
  std::unique_ptr<llvm::object::MachOUniversalBinary> universal;  ///< null for a thin file
  std::unique_ptr<llvm::object::ObjectFile> object;               ///< null for a PDB alone
};

/// LLVM's error as text, and the error dealt with.
[[nodiscard]] std::string TextOf(llvm::Error error);

/// Maps a regular file.
Result<std::unique_ptr<llvm::MemoryBuffer>> MapFile(const std::string& path);

/// The object in a mapped file that is not universal; null where it is none of these formats, or
/// damaged.
[[nodiscard]] std::unique_ptr<llvm::object::ObjectFile> ObjectIn(const llvm::MemoryBuffer& buffer);

/// An error that names both when `found`, LLVM's name of a file's architecture, is not what was
/// asked for. Nothing need be.
Result<void> CheckArchitecture(const std::string& path, const std::string& found,
                               std::string_view architecture);

/// An error that names both when `found`, a file's id, is not the one expected, where one is.
Result<void> CheckId(const std::string& path, const std::string& found,
                     const std::string& expected);

// What a file says of itself; parts of OpenDebugFile.

/// Where the image lies; nothing when the file is no linked image.
[[nodiscard]] std::optional<ImageRange> ImageRangeOf(const llvm::object::ObjectFile& object);
/// What a PE file says of its PDB. LLVM's function for it reads outside broken files.
struct PdbReference {
  std::string path;       ///< on the machine that linked it
  std::string signature;  ///< signature and age in hexadecimal
};
[[nodiscard]] std::optional<PdbReference> PdbReferenceIn(const llvm::object::ObjectFile& object);
/// The text of a signature and an age, for comparison.
[[nodiscard]] std::string SignatureText(llvm::ArrayRef<std::uint8_t> signature, std::uint32_t age);

/// Whether there are DWARF sections with something in them; an error when they reach past the
/// file's end.
[[nodiscard]] llvm::Expected<bool> HasDwarf(const llvm::object::ObjectFile& object);
/// The build id, UUID or PDB signature, else the hash of `bytes`.
[[nodiscard]] std::string IdOf(const llvm::object::ObjectFile& object, llvm::StringRef bytes);

}  // namespace tarvo::symbolreader
