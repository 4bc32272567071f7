#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tarvo/result.h"
#include "toolkit/store/manifest.h"

namespace tarvo::toolkit {

/// A file that holds part of another one's debug information.
struct CompanionFile {
  std::string directory;  ///< that the name counts from; empty where it is the file's own
  std::string name;       ///< the path that the file gives
  std::string id;         ///< in hexadecimal; empty where it is told apart otherwise
  std::string found;      ///< where it is; empty where it was not found
};

/// What a debug file says of itself.
struct FileDescription {
  enum class Kind { Program, Library, DebugFile, Object };

  std::string format;    ///< "ELF", "Mach-O", "PE", "PDB"
  std::string platform;  ///< "linux", "macos", "windows"
  Kind kind = Kind::Object;
  std::vector<SymbolSlice> slices;  ///< one but for a universal file
  bool hasDebugInformation = false;
  bool hasSymbolTable = false;
  std::string pdb;       ///< the file name of the PDB that it names; empty where it names none
  std::string pdbFound;  ///< where that stands beside it; empty where it does not
  std::optional<CompanionFile> shared;  ///< what it shares with others (dwz)
  std::vector<CompanionFile> split;     ///< the parts of split debug information

  // Of the contents, where they were asked for and the format tells.
  std::optional<std::uint64_t> functions;  ///< that have code of their own
  std::optional<std::uint64_t> inlined;    ///< places where a function is inlined
  std::optional<std::uint64_t> lines;      ///< rows of line tables
};

enum class DescriptionDepth {
  Identity,  ///< with its companions wherever they are
  Contents,  ///< with what is in it, and the companions that stand beside it
};

/// Looks at a debug file in a process of its own, the symbol reader's program, for files that come
/// from outside may end who reads them. A file error when it is none, or the limits (4 GB of
/// memory; 60 s, for the contents 600 s) do not suffice; an illegal-state error when the program is
/// not there, as in builds without LLVM.
Result<FileDescription> DescribeFile(const std::string& path, DescriptionDepth depth);

}  // namespace tarvo::toolkit
