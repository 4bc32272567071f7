#pragma once

#include <istream>
#include <string>
#include <vector>

#include "tarvo/result.h"

namespace tarvo::toolkit {

/// What an ELF program asks of its loader.
struct ElfProgram {
  std::string interpreter;          ///< the loader's path; empty in a static program
  std::vector<std::string> needed;  ///< the libraries that it names, without those that these do
};

/// Reads a program's headers. An illegal-argument error, a sentence's end, for a file that is cut
/// off or is no 64-bit x86 program: "is cut off".
Result<ElfProgram> ReadElfProgram(std::istream& file);

}  // namespace tarvo::toolkit
