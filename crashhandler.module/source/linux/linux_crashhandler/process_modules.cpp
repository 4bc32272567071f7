#include <new>

#include "linux/linux_crashhandler/modules.h"

// The module list for a healthy process. Apart from modules.cpp because it may throw and allocate,
// which the files of the crash path may not.

namespace tarvo::crashhandler {

bool EnumerateProcessModules(std::vector<LoadedModule>& modules) {
  const auto append = [](dl_phdr_info* info, std::size_t, void* list) {
    std::uint64_t size = 0;
    for (std::size_t i = 0; i < info->dlpi_phnum; ++i) size += info->dlpi_phdr[i].p_filesz;
    try {
      static_cast<std::vector<LoadedModule>*>(list)->push_back(
          {info->dlpi_name, info->dlpi_addr, size});
    } catch (const std::bad_alloc&) {
      return 1;
    }
    return 0;
  };
  return dl_iterate_phdr(append, &modules) == 0;
}

}  // namespace tarvo::crashhandler
