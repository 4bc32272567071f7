#pragma once

#include <cstdint>

namespace tarvo::crashhandler {

/// Notes which of the process's memory is mapped executable, by /proc/self/maps. Crashed process,
/// once.
void ListCodeRanges();

/// Whether `address` lies in code that can run: in an executable segment of a listed module, or in
/// other memory that is mapped executable. Without /proc only the modules are known. Crashed
/// process, signalled thread.
bool IsCode(std::uint64_t address);

}  // namespace tarvo::crashhandler
