#pragma once

#include <link.h>

#include <cstdint>

#include "tarvo/crashhandler.h"

namespace tarvo::crashhandler {

/// What the capture needs of a loaded object beyond its ModuleRecord: the loader's own program
/// headers, valid while the object stays loaded.
struct ModuleImage {
  const char* path = nullptr;
  std::uint64_t base = 0;
  const ElfW(Phdr) * headers = nullptr;
  std::size_t headerCount = 0;

  /// The segment of type PT_LOAD that holds `address`, or null.
  [[nodiscard]] const ElfW(Phdr) * SegmentOf(std::uint64_t address) const;
};

/// The images of the crashed process, in the order of CrashInfo's modules.
extern CaptureArray<ModuleImage> g_moduleImages;

/// Fills the crash record's modules, in the loader's order, and g_moduleImages. Crashed process.
///
/// dl_iterate_phdr takes the loader's write lock (glibc 2.36 elf/dl-iteratephdr.c): recursive, so a
/// crash under it in this thread does no harm, and held by other threads only while they add or
/// remove an object. It must run before any other thread is signalled, as one of them may be such a
/// thread.
void ListModules();

/// The same from the loader's list for debuggers, without its lock: for when another thread keeps
/// that. Run guarded, as the list may be changing. Crashed process.
void ListModulesWithoutLock();

}  // namespace tarvo::crashhandler
