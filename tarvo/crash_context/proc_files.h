#pragma once

#include <dirent.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "crash_context/text_buffer.h"

namespace tarvo {

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

/// Calls `visit` for each number among the names in an open directory, such as the thread ids in a
/// task directory, in the order in which the kernel lists them, until it returns false.
template <typename Visit>
void ForEachNumber(int directory, const Visit& visit);

/// The number that `text` is; 0 when it is none. Any context.
pid_t ToNumber(const char* text);

/// The path "/proc/self/task/<tid>/<name>".
TextBuffer<64> TaskPath(pid_t tid, const char* name);

ThreadStatus ReadThreadStatus(pid_t tid);

/// Whether the page of `address` is mapped executable, by /proc/self/maps. True when that cannot be
/// read: a wrong "no" would bend a good stack.
bool IsMappedExecutable(std::uint64_t address);

template <typename Visit>
void ForEachNumber(int directory, const Visit& visit) {
  alignas(dirent64) char buffer[2048];
  for (;;) {
    const long size = syscall(SYS_getdents64, directory, buffer, sizeof(buffer));
    if (size <= 0) return;
    for (long at = 0; at < size;) {
      const auto* entry = reinterpret_cast<const dirent64*>(buffer + at);
      at += entry->d_reclen;
      const pid_t number = ToNumber(entry->d_name);
      if (number != 0 && !visit(number)) return;
    }
  }
}

}  // namespace tarvo
