#pragma once

#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

namespace tarvo::symbolreader {

/// Calls `work(i)` for all i below `count`, in `threads` threads. Each takes the lowest that is
/// left.
template <typename Work>
void InParallel(unsigned threads, std::size_t count, const Work& work) {
  std::atomic<std::size_t> next{0};
  const auto run = [&] {
    for (std::size_t i; (i = next.fetch_add(1)) < count;) work(i);
  };
  std::vector<std::jthread> others;
  for (unsigned i = 1; i < threads && i < count; ++i) others.emplace_back(run);
  run();
}

}  // namespace tarvo::symbolreader
