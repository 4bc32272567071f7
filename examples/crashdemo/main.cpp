// A small multi-threaded program that crashes on request. It knows the crash handler only through
// the framework: the host loads the module, and the module does the rest.

#include <errno.h>
#include <linux/seccomp.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "faults.h"
#include "scene.h"
#include "seccomp_filter.h"
#include "tarvo/host/host.h"
#include "tarvo/host/thread_variables.h"
#include "toolkit/command_line/command_line.h"
#include "workers.h"

namespace {

struct DemoOptions {
  std::string kind = "null-write";
  std::string place = "worker";
  bool hold = false;
  bool refusesTracing = false;
  WorkerOptions workers;
};

const Fault& FaultOf(const std::string& kind) {
  return *std::ranges::find(AllFaults(), kind, &Fault::kind);
}

std::string KindsHelp() {
  std::string text = "Kinds:\n";
  for (const Fault& fault : AllFaults()) {
    std::string kind(fault.kind);
    kind.resize(std::max<std::size_t>(kind.size(), 20), ' ');
    text += "  " + kind + std::string(fault.help) + "\n";
  }
  return text +
         "\nThe program's configuration may stand on the command line too, for example\n"
         "  --g_crashReportUrl=crash_bugreport.txt   write the report there, not to standard "
         "error\n"
         "  --g_crashGuard=false                     capture without the crash guard\n"
         "`tarvo config` lists all entries.\n";
}

void DeclareOptions(tarvo::command_line::Program& program, DemoOptions& options) {
  std::vector<std::string> kinds;
  for (const Fault& fault : AllFaults()) kinds.emplace_back(fault.kind);
  program.AddOption("--kind", options.kind, "How to crash (see below)")
      .Named("KIND")
      .OneOf(kinds)
      .ShowDefault();
  program.AddOption("--threads", options.workers.count, "Number of worker threads")
      .Within(0, 20000)
      .ShowDefault();
  program.AddOption("--depth", options.workers.depth, "Calls that each thread is deep")
      .Within(1, 100000)
      .ShowDefault();
  program
      .AddOption("--in", options.place,
                 "The thread that crashes: main, worker (one more worker)\n"
                 "or plugin (one that the plug-in starts)")
      .Named("THREAD")
      .OneOf({"main", "worker", "plugin"})
      .ShowDefault();
  program.AddFlag("--refuse-tracing", options.refusesTracing,
                  "As in a sandbox that forbids ptrace: threads are asked\n"
                  "for their stacks");
  program.AddFlag("--hold", options.hold,
                  "Do not crash; wait, for a debugger to look at the program");
  program.SetFooter(KindsHelp());
}

[[noreturn]] void Hold() {
  std::printf("process %d waits\n", getpid());
  std::fflush(stdout);
  for (;;) pause();
}

void Crash(const DemoOptions& options, Workers& workers) {
  const Fault& fault = FaultOf(options.kind);
  const char* who = options.place == "main"     ? "the main thread"
                    : options.place == "worker" ? "one more worker"
                                                : "a thread of the plug-in";
  std::printf("%d worker threads are at work; now %s: %.*s\n", options.workers.count, who,
              static_cast<int>(fault.help.size()), fault.help.data());
  std::fflush(stdout);
  if (options.place == "worker") {
    workers.RunInWorker("victim", fault.run);
  } else {
    auto* const update = options.place == "main" ? scene::Update : scene::UpdateInThread;
    update(
        options.workers.depth, [](void* run) { reinterpret_cast<void (*)()>(run)(); },
        reinterpret_cast<void*>(fault.run));
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> configuration = tarvo::TakeConfigurationArguments(argc, argv);
  DemoOptions options;
  tarvo::command_line::Program program("crashdemo",
                                       "Crashes in a chosen way, with a crash handler watching.");
  DeclareOptions(program, options);
  if (const auto status = program.Parse(argc, argv)) return *status;

  auto host = tarvo::Host::Start({.arguments = configuration, .crashGuard = {.enabled = true}});
  if (!host) {
    std::fprintf(stderr, "crashdemo: %s\n", host.GetError().Text().ToStdString().c_str());
    return 2;
  }
  (void)tarvo::SetThreadVariable("Document", "city.scene");
  options.workers.allocating = options.kind == "busy-malloc";
  options.workers.oneBlocked = options.kind == "blocked-thread";
  options.workers.oneStuck = options.kind == "stuck-thread";
  Workers workers(options.workers);
  if (options.refusesTracing && !InstallSeccompFilter(SYS_ptrace, SECCOMP_RET_ERRNO | EPERM))
    std::fprintf(stderr, "crashdemo: tracing cannot be refused here.\n");
  if (options.hold) Hold();
  Crash(options, workers);
  std::fprintf(stderr, "crashdemo: the fault \"%s\" is not to be had here.\n",
               options.kind.c_str());
  return 3;
}
