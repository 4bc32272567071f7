#include "linux/linux_crashhandler/recording/crash_facts.h"

#include <elf.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>

#include "crash_context/text_buffer.h"
#include "linux/linux_crashhandler/base/capture_memory.h"
#include "linux/linux_crashhandler/base/fault_guard.h"
#include "linux/linux_crashhandler/capture.h"
#include "linux/linux_crashhandler/facts/modules.h"
#include "linux/linux_crashhandler/facts/thread_table.h"
#include "tarvo/crash_report.h"

namespace tarvo::crashhandler {
namespace {

namespace variable = crash_report::variable;

/// A build id is 20 bytes (SHA-1) or 16; a longer one is cut.
constexpr std::size_t kLongestBuildId = 64;

char g_programFile[PATH_MAX] = "";

/// The text in the capture's memory; null when that is gone.
template <std::size_t kCapacity>
const char* Keep(const TextBuffer<kCapacity>& text) {
  auto* kept = static_cast<char*>(CaptureAllocate(text.Size() + 1));
  if (kept != nullptr) memcpy(kept, text.Text(), text.Size() + 1);
  return kept;
}

void AddVariable(ThreadRecord& thread, const char* name, const char* value) {
  if (name == nullptr || value == nullptr) return;
  if (NameAndValue* variable = Append(thread.variables)) *variable = {name, value};
}

void AppendTwoDigits(TextBuffer<32>& text, std::int64_t number) {
  if (number < 10) text.Append('0');
  text.AppendDecimal(number);
}

/// The date of a day since 1970-01-01. The C library's gmtime takes the time zone's lock (glibc
/// 2.36 time/tzset.c). Years are counted from March here, so that a leap day is their last.
void AppendDate(TextBuffer<32>& text, std::int64_t day) {
  const std::int64_t shifted = day + 719'468;  // days since 0000-03-01
  const std::int64_t era = shifted / 146'097;  // of 400 years
  const std::int64_t dayOfEra = shifted % 146'097;
  const std::int64_t yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36'524 - dayOfEra / 146'096) / 365;
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t month = (5 * dayOfYear + 2) / 153;  // 0 is March
  const bool isNextYear = month >= 10;
  text.AppendDecimal(era * 400 + yearOfEra + (isNextYear ? 1 : 0));
  text.Append('-');
  AppendTwoDigits(text, isNextYear ? month - 9 : month + 3);
  text.Append('-');
  AppendTwoDigits(text, dayOfYear - (153 * month + 2) / 5 + 1);
}

const char* CrashTime() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  constexpr std::int64_t kDay = 86'400;
  const std::int64_t second = now.tv_sec % kDay;
  TextBuffer<32> text;
  AppendDate(text, now.tv_sec / kDay);
  text.Append('T');
  AppendTwoDigits(text, second / 3600);
  text.Append(':');
  AppendTwoDigits(text, second / 60 % 60);
  text.Append(':');
  AppendTwoDigits(text, second % 60);
  text.Append('Z');
  return Keep(text);
}

using BuildIdText = TextBuffer<2 * kLongestBuildId + 1>;

/// Looks for the GNU build id among the notes from `at` to `end` (System V ABI, gABI 4.1, chapter
/// 5, "Note Section"). Reads the module's memory, so it may fault.
bool FindBuildId(std::uint64_t at, std::uint64_t end, BuildIdText& text) {
  const auto padded = [](std::uint64_t size) { return (size + 3) / 4 * 4; };
  while (end - at >= sizeof(ElfW(Nhdr)) && at < end) {
    const auto& note = *reinterpret_cast<const ElfW(Nhdr)*>(at);
    const std::uint64_t name = at + sizeof(note);
    const std::uint64_t content = name + padded(note.n_namesz);
    if (content > end || note.n_descsz > end - content) return false;
    if (note.n_type == NT_GNU_BUILD_ID && note.n_namesz == 4 &&
        memcmp(reinterpret_cast<const void*>(name), "GNU", 4) == 0) {
      const auto* bytes = reinterpret_cast<const unsigned char*>(content);
      for (std::size_t i = 0; i < note.n_descsz && i < kLongestBuildId; ++i) {
        text.Append("0123456789abcdef"[bytes[i] >> 4]);
        text.Append("0123456789abcdef"[bytes[i] & 15]);
      }
      return true;
    }
    at = content + padded(note.n_descsz);
  }
  return false;
}

const char* BuildIdOf(const ModuleImage& image) {
  BuildIdText text;
  for (std::size_t i = 0; i < image.headerCount; ++i) {
    const ElfW(Phdr)& header = image.headers[i];
    const std::uint64_t start = image.base + header.p_vaddr;
    if (header.p_type == PT_NOTE && FindBuildId(start, start + header.p_memsz, text))
      return Keep(text);
  }
  return nullptr;
}

void AddBuildIds(ThreadRecord& thread) {
  for (const ModuleImage& image : g_moduleImages) {
    const char* volatile id = nullptr;
    RunGuarded(g_faultGuard, [&] { id = BuildIdOf(image); });
    if (id == nullptr) continue;
    char name[48];
    // As the report prints the base address.
    snprintf(name, sizeof(name), "%s%p", variable::kBuildIdPrefix.data(),
             reinterpret_cast<const void*>(image.base));
    TextBuffer<48> kept;
    kept.Append(name);
    AddVariable(thread, Keep(kept), id);
  }
}

/// The crash guard tells it with all other registers.
bool IsFaultKnown(pid_t tid) {
  if (g_crashServices == nullptr) return false;
  const ThreadVariableList list = g_crashServices->threadVariables(tid);
  for (std::size_t i = 0; i < list.size; ++i)
    if (list.items[i].name == variable::kFaultProgramCounter) return true;
  return false;
}

void AddFault(ThreadRecord& thread, const SignalFrame& frame) {
  if (frame.context == nullptr || IsFaultKnown(static_cast<pid_t>(thread.tid))) return;
  TextBuffer<20> text;
  text.AppendAddress(static_cast<std::uint64_t>(frame.context->uc_mcontext.gregs[REG_RIP]));
  AddVariable(thread, variable::kFaultProgramCounter.data(), Keep(text));
}

void AddGuesses(ThreadRecord& thread, const Stack& stack, std::size_t shift) {
  TextBuffer<512> text;
  for (std::size_t i = 0; i < stack.count; ++i) {
    if (!stack.IsGuess(i)) continue;
    if (text.Size() != 0) text.Append(' ');
    text.AppendDecimal(static_cast<std::int64_t>(i + shift));
  }
  if (text.Size() != 0) AddVariable(thread, variable::kGuessedFrames.data(), Keep(text));
}

}  // namespace

void PrepareCrashFacts() {
  const ssize_t size = readlink("/proc/self/exe", g_programFile, sizeof(g_programFile) - 1);
  g_programFile[size < 0 ? 0 : size] = '\0';
}

void AddCrashFacts(pid_t self, const SignalFrame& frame) {
  for (std::size_t i = 0; i < g_crashInfo.threads.size; ++i) {
    ThreadRecord& thread = g_crashInfo.threads.items[i];
    const ThreadEntry* entry = g_threadTable.Find(static_cast<pid_t>(thread.tid));
    if (entry == nullptr) continue;
    const bool isCrashed = entry->tid == self;
    if (isCrashed) {
      AddVariable(thread, variable::kCrashTime.data(), CrashTime());
      if (g_programFile[0] != '\0')
        AddVariable(thread, variable::kProgramFile.data(), g_programFile);
      AddFault(thread, frame);
    }
    AddVariable(thread, variable::kFramesMissing.data(), entry->framesMissing);
    AddVariable(thread, variable::kRegistersMissing.data(), entry->registersMissing);
    AddGuesses(thread, entry->stack, isCrashed ? 0 : 1);
    if (isCrashed) AddBuildIds(thread);
  }
}

}  // namespace tarvo::crashhandler
