#pragma once

#include <dirent.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "crash_context/raw_system_call.h"
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

/// Reads hexadecimal digits from the front of `text` and takes them off. Any context.
std::uint64_t TakeHexadecimal(std::string_view& text);

/// The path "/proc/self/task/<tid>/<name>".
TextBuffer<64> TaskPath(pid_t tid, const char* name);

ThreadStatus ReadThreadStatus(pid_t tid);

/// A line of /proc/self/maps.
struct Mapping {
  std::uint64_t start = 0;
  std::uint64_t end = 0;
  bool isExecutable = false;
};

/// Calls `visit` for each mapping of the process, in ascending order.
template <typename Visit>
void ForEachMapping(const Visit& visit);

/// Reads /proc/self/maps, line by line.
class MappingReader {
 public:
  MappingReader();
  ~MappingReader();
  MappingReader(const MappingReader&) = delete;
  MappingReader& operator=(const MappingReader&) = delete;
  /// False at the end.
  bool Next(Mapping& mapping);

 private:
  bool Fill();
  bool SkipLine();

  int file_;
  char buffer_[4096];
  std::string_view rest_;
};

template <typename Visit>
void ForEachNumber(int directory, const Visit& visit) {
  alignas(dirent64) char buffer[2048];
  for (;;) {
    const long size = RawSystemCall(SYS_getdents64, directory, buffer, sizeof(buffer));
    if (size <= 0) return;
    for (long at = 0; at < size;) {
      const auto* entry = reinterpret_cast<const dirent64*>(buffer + at);
      at += entry->d_reclen;
      const pid_t number = ToNumber(entry->d_name);
      if (number != 0 && !visit(number)) return;
    }
  }
}

template <typename Visit>
void ForEachMapping(const Visit& visit) {
  MappingReader reader;
  for (Mapping mapping; reader.Next(mapping);) visit(mapping);
}

}  // namespace tarvo
