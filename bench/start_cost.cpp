// What a process pays for the crash handler while it does not crash: the time and the resident
// memory of the host's start with the module, above those of a start with a module that does
// nothing. Each start is in a process of its own; the best of 20.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>

#include "tarvo/host/host.h"

namespace {

struct Cost {
  double milliseconds = 1e9;
  double kibibytes = 1e9;
};

double ResidentKibibytes() {
  std::ifstream file("/proc/self/statm");
  long total = 0;
  long resident = 0;
  file >> total >> resident;
  return static_cast<double>(resident * sysconf(_SC_PAGESIZE)) / 1024;
}

Cost StartOnce(const std::string& module) {
  int ends[2];
  if (pipe(ends) != 0) return {};
  const pid_t child = fork();
  if (child == 0) {
    Cost cost;
    const double before = ResidentKibibytes();
    const auto start = std::chrono::steady_clock::now();
    const auto host = tarvo::Host::Start({.modules = {module}});
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
    if (host) cost = {time.count(), ResidentKibibytes() - before};
    _exit(write(ends[1], &cost, sizeof(cost)) == sizeof(cost) ? 0 : 1);
  }
  Cost cost;
  if (read(ends[0], &cost, sizeof(cost)) != sizeof(cost)) cost = {};
  waitpid(child, nullptr, 0);
  close(ends[0]);
  close(ends[1]);
  return cost;
}

Cost BestStart(const std::string& module) {
  Cost best;
  for (int i = 0; i < 20; ++i) {
    const Cost cost = StartOnce(module);
    if (cost.milliseconds < best.milliseconds) best.milliseconds = cost.milliseconds;
    if (cost.kibibytes < best.kibibytes) best.kibibytes = cost.kibibytes;
  }
  return best;
}

}  // namespace

int main() {
  const Cost empty = BestStart(EMPTY_MODULE);
  const Cost full = BestStart(CRASHHANDLER_MODULE);
  std::printf("start of the host            %8.3f ms %8.0f KiB resident\n", empty.milliseconds,
              empty.kibibytes);
  std::printf("start with the crash handler %8.3f ms %8.0f KiB resident\n", full.milliseconds,
              full.kibibytes);
  std::printf("the crash handler            %8.3f ms %8.0f KiB resident\n",
              full.milliseconds - empty.milliseconds, full.kibibytes - empty.kibibytes);
  return 0;
}
