#include "linux/linux_crashhandler/thread_list.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/capture_memory.h"
#include "linux/linux_crashhandler/proc_file.h"

namespace tarvo::crashhandler {
namespace {

CaptureArray<pid_t> g_threadIds;

/// A name of the task directory as a thread id; 0 for "." and "..".
pid_t ThreadIdOf(const char* name) {
  pid_t tid = 0;
  for (; *name >= '0' && *name <= '9'; ++name) tid = 10 * tid + (*name - '0');
  return tid;
}

constexpr bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

}  // namespace

const CaptureArray<pid_t>* ListThreads() {
  const int directory = OpenRaw("/proc/self/task", O_DIRECTORY);
  if (directory < 0) return nullptr;
  alignas(dirent64) char buffer[2048];
  for (;;) {
    const long size = syscall(SYS_getdents64, directory, buffer, sizeof(buffer));
    if (size <= 0) break;
    for (long at = 0; at < size;) {
      const auto* entry = reinterpret_cast<const dirent64*>(buffer + at);
      at += entry->d_reclen;
      const pid_t tid = ThreadIdOf(entry->d_name);
      if (tid == 0) continue;
      if (pid_t* slot = Append(g_threadIds)) *slot = tid;
    }
  }
  CloseRaw(directory);
  return &g_threadIds;
}

void ReadThreadName(pid_t tid, std::span<char, 16> name) {
  char path[64];
  const int file = OpenRaw(TaskPath(path, tid, "comm"));
  if (file < 0) return;
  char text[64];
  const ssize_t size = ReadRaw(file, text);
  CloseRaw(file);
  ssize_t start = 0;
  while (start < size && IsBlank(text[start])) ++start;
  std::size_t length = 0;
  for (ssize_t i = start; i < size && !IsBlank(text[i]) && length < name.size() - 1; ++i)
    name[length++] = text[i];
  if (length == 0) memcpy(name.data(), "unknown", sizeof("unknown"));
}

}  // namespace tarvo::crashhandler
