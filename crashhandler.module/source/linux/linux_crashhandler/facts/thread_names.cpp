#include "linux/linux_crashhandler/facts/thread_names.h"

#include <fcntl.h>
#include <string.h>
#include <sys/syscall.h>

#include <string_view>

#include "crash_context/proc_files.h"
#include "crash_context/raw_system_call.h"
#include "linux/linux_crashhandler/facts/thread_table.h"

namespace tarvo::crashhandler {
namespace {

/// Names of workers (linux-6.1 io_uring/io-wq.c, io_wqe_worker; io_uring/sqpoll.c, io_sq_thread;
/// linux-6.6 drivers/vhost/vhost.c, vhost_worker_create). Any thread may call itself so.
constexpr std::string_view kWorkerNames[] = {"iou-wrk-", "iou-sqp-", "vhost-"};
/// PF_IO_WORKER and PF_USER_WORKER (linux-6.6 include/linux/sched.h).
constexpr std::uint64_t kWorkerFlags = 0x10 | 0x4000;
/// Fields of `stat` between the name and the flags (linux-6.1 fs/proc/array.c, do_task_stat).
constexpr int kFieldsBeforeFlags = 6;

constexpr bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// Reads a file of the thread's; empty when that fails.
template <std::size_t kSize>
std::string_view ReadTaskFile(pid_t tid, const char* name, char (&buffer)[kSize]) {
  TextBuffer<64> path;
  path.AppendDecimal(tid);
  path.Append('/');
  path.Append(name);
  const long file = RawSystemCall(SYS_openat, TaskDirectory(), path.Text(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return {};
  // One call: the kernel makes these texts whole, and they are short.
  const long size = RawSystemCall(SYS_read, file, buffer, kSize);
  CloseRaw(static_cast<int>(file));
  return {buffer, static_cast<std::size_t>(size > 0 ? size : 0)};
}

/// The first word of `comm`, "unknown" when there is none in it, nothing when it cannot be read.
void SetName(ThreadEntry& thread) {
  char buffer[64];
  std::string_view text = ReadTaskFile(thread.tid, "comm", buffer);
  if (text.empty()) return;
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  std::size_t length = 0;
  while (length < text.size() && !IsBlank(text[length]) && length < sizeof(thread.name) - 1)
    ++length;
  if (length == 0) text = "unknown";
  memcpy(thread.name, text.data(), length == 0 ? text.size() : length);
}

/// Whether the kernel says that the thread is a worker.
bool HasWorkerFlags(pid_t tid) {
  char buffer[512];
  std::string_view text = ReadTaskFile(tid, "stat", buffer);
  const std::size_t nameEnd = text.rfind(')');
  if (nameEnd == std::string_view::npos) return false;
  text.remove_prefix(nameEnd + 1);
  for (int i = 0; i <= kFieldsBeforeFlags; ++i) {
    const std::size_t blank = text.find(' ');
    if (blank == std::string_view::npos) return false;
    text.remove_prefix(blank + 1);
  }
  std::uint64_t flags = 0;
  for (; !text.empty() && text[0] >= '0' && text[0] <= '9'; text.remove_prefix(1))
    flags = 10 * flags + static_cast<std::uint64_t>(text[0] - '0');
  return (flags & kWorkerFlags) != 0;
}

bool HasWorkerName(const ThreadEntry& thread) {
  for (const std::string_view name : kWorkerNames)
    if (std::string_view(thread.name).starts_with(name)) return true;
  return false;
}

}  // namespace

void NameThreads() {
  for (ThreadEntry& thread : g_threadTable) {
    if (thread.name[0] != '\0' || thread.stop.load() == StopState::Ended) continue;
    SetName(thread);
    thread.isKernelWorker = HasWorkerName(thread) && HasWorkerFlags(thread.tid);
  }
}

}  // namespace tarvo::crashhandler
