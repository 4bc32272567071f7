#include "linux/linux_crashhandler/base/capture_memory.h"

#include <stdlib.h>
#include <sys/mman.h>

namespace tarvo::crashhandler {
namespace {

constexpr std::size_t kSmallestReserve = std::size_t{1} << 20;
constexpr std::size_t kAlignment = 16;

struct Reserve {
  char* start = nullptr;
  std::size_t size = 0;
  std::size_t used = 0;
};
Reserve g_reserve;

constexpr std::size_t Rounded(std::size_t size) {
  return (size + kAlignment - 1) / kAlignment * kAlignment;
}

}  // namespace

void PrepareCaptureMemory() {
  if (g_reserve.start != nullptr) return;
  // An address-space limit may forbid the whole reserve; a part of it is better than none.
  for (std::size_t size = kCaptureReserve; size >= kSmallestReserve; size /= 2) {
    void* start = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (start == MAP_FAILED) continue;
    // A core dump has the records' contents already in the report's form.
    madvise(start, size, MADV_DONTDUMP);
    g_reserve = {static_cast<char*>(start), size, 0};
    return;
  }
}

void* CaptureAllocate(std::size_t size) {
  size = Rounded(size);
  if (g_reserve.size - g_reserve.used < size) return calloc(1, size);
  void* block = g_reserve.start + g_reserve.used;
  g_reserve.used += size;
  return block;
}

void* CaptureGrow(void* old, std::size_t oldSize, std::size_t newSize) {
  const std::size_t difference = Rounded(newSize) - Rounded(oldSize);
  const bool last = old != nullptr &&
                    static_cast<char*>(old) + Rounded(oldSize) == g_reserve.start + g_reserve.used;
  if (last && g_reserve.size - g_reserve.used >= difference) {
    g_reserve.used += difference;
    return old;
  }
  void* block = CaptureAllocate(newSize);
  if (block != nullptr && oldSize != 0) memcpy(block, old, oldSize);
  return block;
}

}  // namespace tarvo::crashhandler
