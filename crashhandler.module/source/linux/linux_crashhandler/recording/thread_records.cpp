#include "linux/linux_crashhandler/recording/thread_records.h"

#include "linux/linux_crashhandler/base/capture_memory.h"
#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/facts/registers.h"
#include "linux/linux_crashhandler/facts/thread_table.h"

namespace tarvo::crashhandler {
namespace {

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
  for (ThreadEntry& entry : g_threadTable) {
    if (entry.stop.load() == StopState::Ended) continue;
    ThreadRecord* record = Append(g_crashInfo.threads);
    if (record == nullptr) return;
    record->tid = entry.tid;
    record->name = entry.name;
    RecordFrames(entry, entry.tid == self, *record);
    // What the tracer reads of the kernel's own are no registers of this process.
    DecodeRegisters(*record, entry.isKernelWorker ? ThreadRegisters{} : entry.registers);
  }
}

}  // namespace tarvo::crashhandler
