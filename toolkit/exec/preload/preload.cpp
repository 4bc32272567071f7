// The library that `tarvo exec` loads into a program: starts a host before the program's own code
// runs. The program knows nothing of it.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tarvo/host/host.h"
#include "toolkit/exec/preload/environment.h"

namespace {

std::string Variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

/// Kept for good: crashes are captured until the process ends, in its exit handlers too. Reachable,
/// so that no leak check takes it for lost.
tarvo::Host* g_host = nullptr;

void Say(const std::string& why) {
  std::fprintf(stderr, "tarvo: %s runs without crash capture: %s\n", program_invocation_short_name,
               why.c_str());
}

[[gnu::constructor]] void StartHost() {
  const auto modules = tarvo::toolkit::SplitFiles(Variable(tarvo::toolkit::kModulesVariable));
  if (modules.empty()) return;
  auto host = tarvo::Host::Start({.modules = modules,
                                  .configFile = Variable(tarvo::toolkit::kConfigVariable),
                                  .yields = true});
  if (!host) return Say(host.GetError().Text().ToStdString());
  g_host = host->release();
  if (!g_host->Services().IsUnderDebugger() ||
      std::getenv(tarvo::toolkit::kDebuggerVariable) != nullptr)
    return;
  Say("it runs under a debugger, which gets its signals.");
  setenv(tarvo::toolkit::kDebuggerVariable, "1", 1);
}

}  // namespace
