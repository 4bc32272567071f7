// The library that `tarvo exec` loads into a program: starts a host before the program's own code
// runs. The program knows nothing of it.

#include <elf.h>
#include <link.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "command/preload/environment.h"
#include "tarvo/host/host.h"

namespace {

std::string Variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

/// Whether the program itself is linked with the host library: then it starts a host of its own,
/// and there is room for one. The first object of the loader's list is the program.
bool HasOwnHost() {
  const auto isLinked = [](dl_phdr_info* info, std::size_t, void* result) {
    const char* names = nullptr;
    for (int pass = 0; pass < 2; ++pass) {
      for (int i = 0; i < info->dlpi_phnum; ++i) {
        if (info->dlpi_phdr[i].p_type != PT_DYNAMIC) continue;
        const auto* entry =
            reinterpret_cast<const ElfW(Dyn)*>(info->dlpi_addr + info->dlpi_phdr[i].p_vaddr);
        for (; entry->d_tag != DT_NULL; ++entry) {
          if (entry->d_tag == DT_STRTAB) names = reinterpret_cast<const char*>(entry->d_un.d_ptr);
          if (pass == 1 && entry->d_tag == DT_NEEDED &&
              std::string_view(names + entry->d_un.d_val).starts_with("libtarvo.so."))
            *static_cast<bool*>(result) = true;
        }
      }
      if (names == nullptr) break;
    }
    return 1;
  };
  bool result = false;
  dl_iterate_phdr(isLinked, &result);
  return result;
}

[[gnu::constructor]] void StartHost() {
  const auto modules = tarvo::command::SplitFiles(Variable(tarvo::command::kModulesVariable));
  if (modules.empty() || HasOwnHost()) return;
  auto host = tarvo::Host::Start(
      {.modules = modules,
       .configFile = Variable(tarvo::command::kConfigVariable),
       .crashGuard = {.enabled = true, .report = Variable(tarvo::command::kReportVariable)}});
  if (!host) {
    std::fprintf(stderr, "tarvo: %s runs without crash capture: %s\n",
                 program_invocation_short_name, host.GetError().Text().ToStdString().c_str());
    return;
  }
  // Kept for good: crashes are captured until the process ends, in its exit handlers too.
  (void)host->release();
}

}  // namespace
