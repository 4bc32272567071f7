#pragma once

#include <string>

#include "tarvo/result.h"

namespace tarvo::symbolreader {

/// How much of a file is described.
enum class DescriptionDepth {
  Identity,  ///< with its parts wherever they are
  Contents,  ///< with those parts that stand beside it, as who has but its bundle finds it
};

/// What the file at `path` says of itself, for programs: texts "KEY=VALUE", each ended by a zero
/// byte, some of them several times.
///
///     format        ELF, Mach-O, PE or PDB
///     platform      linux, macos or windows
///     kind          program, library, debug (not told by the file) or object
///     architecture  LLVM's name, once for each slice of a universal file, each followed by its ...
///     id            ... build id, UUID, or a PDB's signature and age; none where it has none
///     name          what a Mach-O library calls itself
///     dwarf         yes, where there is debug information in it
///     symbols       yes, where a symbol table names functions
///     pdb           the PDB that a PE file names, as it was on the machine that linked it, and ...
///     pdbfound      ... its place, where it stands beside the file and is of the same build
///     shared        the supplementary file that it names (dwz), followed by its ...
///     sharedid      ... id and ...
///     sharedfound   ... its place, where it was found
///     split         each part of split debug information: the directory of its compilation ...
///     splitname     ... its path as the file has it, and ...
///     splitfound    ... its place, where it was found
///
/// By `Contents` also, of DWARF and PDBs, the numbers
///
///     functions     that have code of their own
///     inlined       places where a function is inlined
///     lines         rows of line tables
///
/// which are left out where a PDB is damaged.
///
/// A file error when it is no debug file or cannot be read.
Result<std::string> Describe(const std::string& path, DescriptionDepth depth);

}  // namespace tarvo::symbolreader
