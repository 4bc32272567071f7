#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace tarvo::crashhandler {

// Files of /proc, read with raw system calls: the C library's own functions for it allocate, and
// its read and open are cancellation points. Any context.

/// What the kernel says of one thread in its `status` file.
struct ThreadStatus {
  bool exists = false;
  bool ended = false;                ///< a zombie, or dead: it runs no handler any more
  std::uint64_t blockedSignals = 0;  ///< bit n - 1 for signal n
};

/// Opens a file read-only; -1 when that fails.
int OpenRaw(const char* path, int extraFlags = 0);
void CloseRaw(int file);
/// Reads until `buffer` is full or the file ends; the bytes read, or -1.
ssize_t ReadRaw(int file, std::span<char> buffer);

/// Makes "/proc/self/task/<tid>/<name>" in `buffer` (zero-terminated) and returns it.
const char* TaskPath(std::span<char, 64> buffer, pid_t tid, const char* name);

ThreadStatus ReadThreadStatus(pid_t tid);

/// Whether the page of `address` is mapped executable, by /proc/self/maps. True when that cannot be
/// read: a wrong "no" would bend a good stack.
bool IsMappedExecutable(std::uint64_t address);

}  // namespace tarvo::crashhandler
