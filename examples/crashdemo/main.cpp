// A small multi-threaded program that crashes on request. It knows the crash handler only through
// the framework: the host loads the module, and the module does the rest.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <string>

#include "faults.h"
#include "scene.h"
#include "tarvo/host/host.h"
#include "tarvo/host/thread_variables.h"
#include "workers.h"

namespace {

struct DemoOptions {
  std::string kind = "null-write";
  std::string place = "worker";
  bool hold = false;
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

void DeclareOptions(CLI::App& app, DemoOptions& options) {
  std::vector<std::string> kinds;
  for (const Fault& fault : AllFaults()) kinds.emplace_back(fault.kind);
  app.add_option("--kind", options.kind, "How to crash (see below)")
      ->check(CLI::IsMember(kinds))
      ->capture_default_str();
  app.add_option("--threads", options.workers.count, "Number of worker threads")
      ->check(CLI::Range(0, 20000))
      ->capture_default_str();
  app.add_option("--depth", options.workers.depth, "Calls that each thread is deep")
      ->check(CLI::Range(1, 100000))
      ->capture_default_str();
  app.add_option("--in", options.place,
                 "Which thread crashes: the main one, one more worker,\n"
                 "or one that the plug-in starts")
      ->check(CLI::IsMember({"main", "worker", "plugin"}))
      ->capture_default_str();
  app.add_flag("--hold", options.hold, "Do not crash; wait, for a debugger to look at the program");
  app.footer(KindsHelp());
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
  CLI::App app("Crashes in a chosen way, with a crash handler watching.", "crashdemo");
  DeclareOptions(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }

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
  if (options.hold) Hold();
  Crash(options, workers);
  std::fprintf(stderr, "crashdemo: the fault \"%s\" is not to be had here.\n",
               options.kind.c_str());
  return 3;
}
