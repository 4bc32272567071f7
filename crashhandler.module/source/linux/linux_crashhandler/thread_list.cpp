#include "linux/linux_crashhandler/thread_list.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "crash_context/proc_files.h"
#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/capture_memory.h"

namespace tarvo::crashhandler {
namespace {

CaptureArray<pid_t> g_threadIds;

constexpr bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

}  // namespace

const CaptureArray<pid_t>* ListThreads() {
  const int directory = OpenRaw("/proc/self/task", O_DIRECTORY);
  if (directory < 0) return nullptr;
  ForEachNumber(directory, [](pid_t tid) {
    if (pid_t* slot = Append(g_threadIds)) *slot = tid;
    return true;
  });
  CloseRaw(directory);
  return &g_threadIds;
}

void ReadThreadName(pid_t tid, std::span<char, 16> name) {
  const int file = OpenRaw(TaskPath(tid, "comm").Text());
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
