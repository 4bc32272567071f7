#include "linux/linux_crashhandler/facts/thread_table.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <new>

#include "crash_context/held_directory.h"
#include "crash_context/proc_files.h"
#include "crash_context/raw_system_call.h"
#include "linux/linux_crashhandler/base/capture_memory.h"
#include "linux/linux_crashhandler/capture.h"

namespace tarvo::crashhandler {

ThreadTable g_threadTable;

namespace {

/// Room for threads that are found after the first listing.
constexpr std::size_t kMoreThreads = 256;

/// /proc as it was at the start.
HeldDirectory g_processes;
/// Descriptors that are there to be closed when there are no others.
HeldDirectory g_spare[4];
int g_taskDirectory = -1;

/// The report, the tracer's listing and the files of /proc want some descriptors.
void FreeDescriptors() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
  }
  for (const HeldDirectory& spare : g_spare)
    if (const int descriptor = spare.Descriptor(); descriptor >= 0) CloseRaw(descriptor);
}

int OpenTaskDirectory() {
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  long directory = -ENOENT;
  if (const int processes = g_processes.Descriptor(); processes >= 0)
    directory = RawSystemCall(SYS_openat, processes, "self/task", kFlags);
  if (directory < 0) directory = RawSystemCall(SYS_openat, AT_FDCWD, "/proc/self/task", kFlags);
  return directory < 0 ? -1 : static_cast<int>(directory);
}

/// A directory has a link for each of its own (linux-6.1 fs/proc/base.c, proc_task_getattr).
std::size_t CountThreads(int directory) {
  struct stat facts{};
  const bool isKnown = directory >= 0 && fstat(directory, &facts) == 0;
  return isKnown ? static_cast<std::size_t>(facts.st_nlink) : 1;
}

/// Room for `count` threads and some more, or for this one alone.
bool MakeTable(std::size_t count) {
  for (const std::size_t capacity : {count + kMoreThreads, count, std::size_t{1}}) {
    g_threadTable.entries =
        static_cast<ThreadEntry*>(CaptureAllocate(capacity * sizeof(ThreadEntry)));
    g_threadTable.capacity = capacity;
    if (g_threadTable.entries != nullptr) return true;
  }
  g_threadTable.capacity = 0;
  return false;
}

}  // namespace

ThreadEntry* ThreadTable::Find(pid_t tid) const {
  for (ThreadEntry& entry : *this)
    if (entry.tid == tid) return &entry;
  return nullptr;
}

ThreadEntry* ThreadTable::Add(pid_t tid) {
  const std::size_t index = count.load();
  if (index == capacity) return nullptr;
  auto* entry = new (&entries[index]) ThreadEntry;
  entry->tid = tid;
  count.store(index + 1);
  return entry;
}

void PrepareThreadList() {
  if (g_processes.Descriptor() >= 0) return;
  g_processes.Hold("/proc");
  for (HeldDirectory& spare : g_spare) spare.Hold("/proc");
}

void ListThreads(pid_t self) {
  FreeDescriptors();
  g_taskDirectory = OpenTaskDirectory();
  g_threadTable.count.store(0);
  if (!MakeTable(CountThreads(g_taskDirectory))) return;
  if (g_taskDirectory >= 0)
    ForEachNumber(g_taskDirectory, [](pid_t tid) { return g_threadTable.Add(tid) != nullptr; });
  if (g_threadTable.Find(self) != nullptr) return;
  // The directory of another pid namespace lists threads of others.
  if (g_taskDirectory >= 0) CloseRaw(g_taskDirectory);
  g_taskDirectory = -1;
  g_threadTable.count.store(0);
  g_threadTable.Add(self);
}

int TaskDirectory() { return g_taskDirectory; }

}  // namespace tarvo::crashhandler
