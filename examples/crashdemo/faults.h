#pragma once

#include <span>
#include <string_view>

/// One way to crash.
struct Fault {
  std::string_view kind;
  std::string_view help;
  /// Crashes the calling thread. Returns only when the fault cannot be had on this machine.
  void (*run)();
  /// The function that stands in the crashing thread's stack.
  std::string_view function;
};

/// Every kind, in the order of the help text.
std::span<const Fault> AllFaults();
