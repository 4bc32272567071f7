#include "indexer/progress_report.h"

#include <unistd.h>

#include "indexer_client/indexer_protocol.h"

namespace tarvo::symbolreader {

void ProgressReport::Add(std::uint64_t bytes) {
  constexpr int kStepBits = 20;  // a mebibyte: a unit may have some bytes only
  const std::uint64_t before = done_.fetch_add(bytes, std::memory_order_relaxed);
  if (before >> kStepBits != (before + bytes) >> kStepBits) Write(before + bytes);
}

void ProgressReport::Write(std::uint64_t done) const {
  const IndexProgress progress{.done = done, .all = all_};
  [[maybe_unused]] const auto written = pwrite(STDOUT_FILENO, &progress, sizeof progress, 0);
}

}  // namespace tarvo::symbolreader
