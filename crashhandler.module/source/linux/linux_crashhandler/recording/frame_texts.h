#pragma once

#include <cstdint>

namespace tarvo::crashhandler {

// The texts of call-stack entries: to the letter what the C library's `backtrace_symbols` prints,
// without the directories in front. That function allocates and takes the loader's lock (glibc 2.36
// debug/backtracesyms.c, elf/dl-addr.c); this takes the same facts from the modules' own tables in
// memory.

/// Notes the program's name as the loader prints it. Before a crash.
void PrepareFrameTexts();

/// Gives every frame of the crash record its moduleText. Needs the modules to be listed. Crashed
/// process.
void NameFrames();

/// The text for one address, in the capture's memory; null when that is gone. Crashed process.
const char* FrameText(std::uint64_t address);

}  // namespace tarvo::crashhandler
