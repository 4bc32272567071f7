#include "linux/linux_crashhandler/capture_services.h"

#include <link.h>

#include <new>

#include "connection.h"
#include "linux/linux_crashhandler/capture.h"
#include "tarvo/format.h"

namespace tarvo::crashhandler {

void DisplayCrashHandlerDialog(const String& title, const String& message) {
  g_tarvo.framework->Output().Diagnostic(
      kCaptureSource.Here(),
      Format("Entered DisplayCrashHandlerDialog with title=@ and message=@", title, message));
}

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
