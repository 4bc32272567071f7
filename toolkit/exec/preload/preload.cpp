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

#include "tarvo/host/host.h"
#include "toolkit/exec/preload/environment.h"

namespace {

std::string Variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

/// Whether the program itself is linked with the host library: then it starts a host of its own,
/// and there is room for one. The first object of the loader's list is the program.
bool HasOwnHost() {
  const ElfW(Dyn)* const entries = _r_debug.r_map->l_ld;
  const char* names = nullptr;
  for (const auto* entry = entries; entry->d_tag != DT_NULL; ++entry)
    if (entry->d_tag == DT_STRTAB) names = reinterpret_cast<const char*>(entry->d_un.d_ptr);
  for (const auto* entry = entries; names != nullptr && entry->d_tag != DT_NULL; ++entry)
    if (entry->d_tag == DT_NEEDED &&
        std::string_view(names + entry->d_un.d_val).starts_with("libtarvo.so."))
      return true;
  return false;
}

[[gnu::constructor]] void StartHost() {
  const auto modules = tarvo::toolkit::SplitFiles(Variable(tarvo::toolkit::kModulesVariable));
  if (modules.empty() || HasOwnHost()) return;
  auto host = tarvo::Host::Start(
      {.modules = modules,
       .configFile = Variable(tarvo::toolkit::kConfigVariable),
       .crashGuard = {
           .enabled = true, .hangup = true, .report = Variable(tarvo::toolkit::kReportVariable)}});
  if (!host) {
    std::fprintf(stderr, "tarvo: %s runs without crash capture: %s\n",
                 program_invocation_short_name, host.GetError().Text().ToStdString().c_str());
    return;
  }
  // Kept for good: crashes are captured until the process ends, in its exit handlers too.
  (void)host->release();
}

}  // namespace
