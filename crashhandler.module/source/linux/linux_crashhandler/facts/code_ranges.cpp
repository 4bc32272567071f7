#include "linux/linux_crashhandler/facts/code_ranges.h"

#include <cstddef>

#include "crash_context/proc_files.h"
#include "linux/linux_crashhandler/base/capture_memory.h"
#include "linux/linux_crashhandler/facts/modules.h"

namespace tarvo::crashhandler {
namespace {

struct Range {
  std::uint64_t start = 0;
  std::uint64_t end = 0;
};

/// In ascending order, as the kernel lists them.
CaptureArray<Range> g_ranges;

void AddRange(std::uint64_t start, std::uint64_t end) {
  if (g_ranges.size != 0 && g_ranges.items[g_ranges.size - 1].end == start) {
    g_ranges.items[g_ranges.size - 1].end = end;
  } else if (Range* range = Append(g_ranges)) {
    *range = {start, end};
  }
}

}  // namespace

void ListCodeRanges() {
  g_ranges = {};
  ForEachMapping([](const Mapping& mapping) {
    if (mapping.isExecutable) AddRange(mapping.start, mapping.end);
  });
}

bool IsCode(std::uint64_t address) {
  std::size_t low = 0;
  std::size_t high = g_ranges.size;
  while (low < high) {
    const std::size_t middle = (low + high) / 2;
    if (address >= g_ranges.items[middle].end) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  if (low < g_ranges.size) return address >= g_ranges.items[low].start;
  if (g_ranges.size != 0) return false;
  for (const ModuleImage& image : g_moduleImages)
    if (const auto* segment = image.SegmentOf(address)) return (segment->p_flags & PF_X) != 0;
  return false;
}

}  // namespace tarvo::crashhandler
