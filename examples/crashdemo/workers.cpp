#include "workers.h"

#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <latch>
#include <string>

#include "scene.h"
#include "tarvo/host/thread_variables.h"

namespace {

constexpr std::array kRoles = {"render", "loader", "audio", "physics", "autosave", "network"};
constexpr std::array kTasks = {"drawing frame 2204",  "reading city.scene", "mixing 12 voices",
                               "stepping 318 bodies", "writing backup 7",   "syncing with peers"};

// Read through a pointer that the compiler cannot see through, so that no allocation is left out.
void* (*volatile g_allocate)(std::size_t) = std::malloc;

void Wait(void* atWork) {
  static_cast<std::latch*>(atWork)->count_down();
  for (;;) pause();
}

void Allocate(void* atWork) {
  static_cast<std::latch*>(atWork)->count_down();
  for (std::size_t size = 1;; size = size % 5000 + 16) std::free(g_allocate(size));
}

/// The kernel holds a thread inside vfork until the child has ended or runs another program.
void Stick(void* atWork) {
  static_cast<std::latch*>(atWork)->count_down();
  if (vfork() == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;;) pause();
  }
}

void Describe(const std::string& name, const char* task) {
  pthread_setname_np(pthread_self(), name.c_str());
  (void)tarvo::SetThreadVariable("Task", task);
  (void)tarvo::SetThreadVariable("Document", "city.scene");
}

}  // namespace

Workers::Workers(const WorkerOptions& options) : options_(options) {
  std::latch atWork(options.count);
  for (int i = 0; i < options.count; ++i) {
    std::thread([i, &atWork, options] {
      const auto role = static_cast<std::size_t>(i) % kRoles.size();
      Describe(std::string(kRoles[role]) + "-" + std::to_string(i), kTasks[role]);
      if (options.oneBlocked && i == 0) {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
      }
      auto* const work = options.oneStuck && i == 0 ? Stick : options.allocating ? Allocate : Wait;
      scene::Update(options.depth, work, &atWork);
    }).detach();
  }
  atWork.wait();
}

void Workers::RunInWorker(const std::string& name, const std::function<void()>& task) {
  std::thread([&] {
    Describe(name, "running the fault");
    auto* work = const_cast<std::function<void()>*>(&task);
    scene::Update(
        options_.depth, [](void* it) { (*static_cast<std::function<void()>*>(it))(); }, work);
  }).join();
}
