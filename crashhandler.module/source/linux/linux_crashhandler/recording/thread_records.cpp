#include "linux/linux_crashhandler/recording/thread_records.h"

#include <fcntl.h>
#include <string.h>
#include <sys/syscall.h>

#include <span>

#include "crash_context/proc_files.h"
#include "crash_context/raw_system_call.h"
#include "linux/linux_crashhandler/base/capture_memory.h"
#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/facts/registers.h"
#include "linux/linux_crashhandler/facts/thread_table.h"

namespace tarvo::crashhandler {
namespace {

constexpr std::size_t kNameSize = 16;

constexpr bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

int OpenName(pid_t tid) {
  TextBuffer<64> path;
  path.AppendDecimal(tid);
  path.Append("/comm");
  return static_cast<int>(
      RawSystemCall(SYS_openat, TaskDirectory(), path.Text(), O_RDONLY | O_CLOEXEC));
}

/// Puts the thread's name into `name`: the first word of its `comm` file, "unknown" when there is
/// none in it, nothing when the file cannot be opened.
void ReadName(pid_t tid, std::span<char, kNameSize> name) {
  const int file = OpenName(tid);
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

void AddFrame(ThreadRecord& record, std::uint64_t address) {
  if (record.frames.size == kMaximumFrames) return;
  if (StackFrame* frame = Append(record.frames)) frame->sp = address;
}

/// The interrupted instruction stands twice: once for the signal frame that a thread which is asked
/// for its stack would have on top of it. The crashing thread's first frame is its handler's.
void RecordFrames(const ThreadEntry& entry, bool isCrashed, ThreadRecord& record) {
  const Stack& stack = entry.stack;
  const std::size_t count = stack.count;
  if (count != 0 && !isCrashed) AddFrame(record, stack.addresses[0]);
  for (std::size_t i = 0; i < count; ++i) AddFrame(record, stack.addresses[i]);
}

}  // namespace

void RecordThreads() {
  const pid_t self = OwnThreadId();
  for (const ThreadEntry& entry : g_threadTable) {
    if (entry.stop.load() == StopState::Ended) continue;
    ThreadRecord* record = Append(g_crashInfo.threads);
    if (record == nullptr) return;
    record->tid = entry.tid;
    record->name = static_cast<char*>(CaptureAllocate(kNameSize));
    if (record->name != nullptr)
      ReadName(entry.tid, std::span<char, kNameSize>(record->name, kNameSize));
    RecordFrames(entry, entry.tid == self, *record);
    DecodeRegisters(*record, entry.registers);
  }
}

}  // namespace tarvo::crashhandler
