#pragma once

#include "tarvo/framework.h"
#include "tarvo/host/crash_guard.h"

namespace tarvo {

/// Puts the guard in front of the capture, and takes it away. One at a time in a process, used by
/// the Host's thread. Before a crash.
class CrashGuard {
 public:
  CrashGuard() = default;
  ~CrashGuard() { Stop(); }
  CrashGuard(const CrashGuard&) = delete;
  CrashGuard& operator=(const CrashGuard&) = delete;

  /// Notes the signal actions as they are before the modules install theirs.
  void NoteEarlierActions();

  /// Puts the guard in front of the actions that the modules have installed since, unless they have
  /// not: no crash is captured then, and there is nothing to guard. What is not to be had is told
  /// on the diagnostic output; the rest is done.
  void Start(const CrashGuardOptions& options, Framework& framework);

  /// After Start. Has SIGHUP ignored again where it was, for the program that asks and for those
  /// that it starts; the capture takes it back at a crash. `all`: the fatal signals too, which end
  /// the process then without a capture when they are faults, as they did before.
  void KeepIgnored(bool all);

  /// Puts back what was there, except where the program has installed an action of its own since.
  /// While a crash is captured in another thread it waits for the end of the process instead.
  void Stop();

 private:
  bool started_ = false;
};

}  // namespace tarvo
