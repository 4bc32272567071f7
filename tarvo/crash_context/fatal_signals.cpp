#include "crash_context/fatal_signals.h"

namespace tarvo {

std::size_t IndexOf(std::span<const NamedSignal> signals, int signal) {
  std::size_t index = 0;
  while (index < signals.size() && signals[index].number != signal) ++index;
  return index;
}

const char* NameOf(std::span<const NamedSignal> signals, int signal) {
  const std::size_t index = IndexOf(signals, signal);
  return index < signals.size() ? signals[index].name : "unknown signal";
}

}  // namespace tarvo
