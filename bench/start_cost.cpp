// What a process pays for the crash handler while it does not crash: the time and the resident
// memory of the host's start as the README's program does it, with the capture alone, beside a
// start with all modules and one with a module that does nothing. Each start is in a process of its
// own; the best of 20.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

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

Cost StartOnce(const std::vector<std::string>& modules) {
  int ends[2];
  if (pipe(ends) != 0) return {};
  const pid_t child = fork();
  if (child == 0) {
    Cost cost;
    const double before = ResidentKibibytes();
    const auto start = std::chrono::steady_clock::now();
    const auto host = tarvo::Host::Start({.modules = modules});
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

Cost BestStart(const std::vector<std::string>& modules) {
  Cost best;
  for (int i = 0; i < 20; ++i) {
    const Cost cost = StartOnce(modules);
    if (cost.milliseconds < best.milliseconds) best.milliseconds = cost.milliseconds;
    if (cost.kibibytes < best.kibibytes) best.kibibytes = cost.kibibytes;
  }
  return best;
}

void Print(const char* what, const Cost& cost) {
  std::printf("%-28s %8.3f ms %8.0f KiB resident\n", what, cost.milliseconds, cost.kibibytes);
}

}  // namespace

int main() {
  const Cost empty = BestStart({EMPTY_MODULE});
  const Cost capture = BestStart({CRASHHANDLER_MODULE});
  Print("start of the host", empty);
  Print("with the crash handler", capture);
  Print("with all modules", BestStart({}));
  Print("the crash handler",
        {capture.milliseconds - empty.milliseconds, capture.kibibytes - empty.kibibytes});
  return 0;
}
