#pragma once

#include <cstddef>
#include <cstring>
#include <new>

#include "tarvo/crashhandler.h"

namespace tarvo::crashhandler {

// Memory of the crash path. A crash inside malloc leaves the allocator's lock held for ever, so the
// capture takes what it needs from a reserve mapped at installation: address space only, a page
// becomes real when it is written. 64 MiB hold the records of about 8000 threads. Beyond that the
// C library's allocator is asked, which may block; nothing is ever given back.
//
// Not locked: used by the crashing thread, and by the one thread that holds the hand-over.

inline constexpr std::size_t kCaptureReserve = std::size_t{64} << 20;

/// Maps the reserve, or as much of it as the process may have. Before a crash; repeated calls keep
/// the first reserve.
void PrepareCaptureMemory();

/// `size` zeroed bytes, aligned to 16, or null. Crashed process, signalled thread.
void* CaptureAllocate(std::size_t size);

/// A larger block with the first `oldSize` bytes of `old` and zeroes behind them, or null, which
/// leaves `old` as it is. Grows in place when `old` was the last to be allocated. Crashed process,
/// signalled thread.
void* CaptureGrow(void* old, std::size_t oldSize, std::size_t newSize);

/// The capacity that follows `capacity`: 16 at first, then half as much again, in multiples of 16.
constexpr std::size_t NextCapacity(std::size_t capacity) {
  return capacity == 0 ? 16 : ((3 * capacity + 3) / 2 + 15) / 16 * 16;
}

/// Appends a zeroed element and returns it, or null when memory is gone. Crashed process, signalled
/// thread.
template <typename T>
T* Append(CaptureArray<T>& array) {
  if (array.size == array.capacity) {
    const std::size_t capacity = NextCapacity(array.capacity);
    void* items = CaptureGrow(array.items, array.capacity * sizeof(T), capacity * sizeof(T));
    if (items == nullptr) return nullptr;
    array.items = static_cast<T*>(items);
    array.capacity = capacity;
  }
  T* item = new (&array.items[array.size]) T{};
  ++array.size;
  return item;
}

}  // namespace tarvo::crashhandler
