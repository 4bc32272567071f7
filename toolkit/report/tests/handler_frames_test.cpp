#include "toolkit/report/handler_frames.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tarvo/crash_report.h"
#include "toolkit/report/crash_mark.h"
#include "toolkit/report/crash_site.h"

namespace tarvo::report {
namespace {

constexpr std::uint64_t kFault = 0x4711;

/// "end" and, where it is the trampoline, "+".
std::string Found(const std::vector<FrameName>& frames) {
  const auto found = FindHandlerFrames(frames, kFault);
  return found ? std::to_string(found->end) + (found->hasTrampoline ? "+" : "") : "none";
}

TEST(HandlerFramesTest, EndBeforeTheTrampoline) {
  const FrameName called = {"libc.so.6", "syscall+0x19"};
  const FrameName handler = {"crashhandler.so", "+0x85e0"};
  const FrameName guard = {"libtarvo.so.1", ""};
  const FrameName way = {"libc.so.6", "+0x3c050"};
  const FrameName fault = {"a.so", "Crash+0xe"};
  const FrameName exact = {"a.so", "Crash+0xe", kFault};
  const struct {
    const char* what;
    std::vector<FrameName> frames;
    const char* found;
  } kCases[] = {
      {"all of them", {called, handler, handler, guard, way, fault}, "4+"},
      {"no guard, the way back resolved", {handler, {"libc.so.6", "__restore_rt"}, fault}, "1+"},
      {"a way back without any name", {handler, {"libc.so.6", ""}}, "1+"},
      {"a thread of the module's own", {handler, {"libc.so.6", "qsort+0x2"}, fault}, "1"},
      {"called by another library", {handler, {"libcrypto.so.3", "+0x1"}, fault}, "1"},
      {"behind a handler of the program", {handler, guard, fault, way, exact, fault}, "3+"},
      {"at a null pointer", {handler, way, {"", "", kFault}, fault}, "1+"},
      {"nothing but the handler", {handler, guard}, "2"},
      {"the guard at its own work", {guard, way, fault}, "none"},
      {"another module", {{"crashhandler.so.1", "+0x1"}, way}, "none"},
      {"no frames", {}, "none"},
  };
  for (const auto& [what, frames, found] : kCases) EXPECT_EQ(Found(frames), found) << what;
}

TEST(CrashSiteTest, AbortsAreTheirCallers) {
  const FrameName handler = {"crashhandler.so", "+0x85e0"};
  const FrameName way = {"libc.so.6", ""};
  const FrameName raise = {"libc.so.6", "pthread_kill+0x1"};
  const FrameName terminate = {"libstdc++.so.6", "__cxa_throw+0x2"};
  const FrameName own = {"libscene.so", "Check+0xe"};
  const FrameName kernel = {"KERNELBASE.dll", "RaiseException"};
  const struct {
    const char* what;
    const char* number;
    const char* signal;
    std::vector<FrameName> frames;
    const char* found;  ///< the frame that was interrupted, and the one to look at
  } kCases[] = {
      {"assert", "0x00000006", "", {handler, way, raise, raise, own, own}, "2 4"},
      {"an exception", "", "SIGABRT", {handler, way, raise, terminate, own}, "2 4"},
      {"of Windows", "0xE06D7363", "", {kernel, {"VCRUNTIME140.dll", "x"}, own}, "0 2"},
      {"nobody called", "6", "", {handler, way, raise, terminate}, "2 2"},
      {"a fault in the C library", "0x0000000B", "SIGSEGV", {handler, way, raise, own}, "2 2"},
      {"no frames", "6", "", {}, "0 0"},
  };
  for (const auto& [what, number, signal, frames, found] : kCases) {
    const auto site =
        FindCrashSite({.exceptionThread = "7",
                       .exceptionNumber = number,
                       .exceptionText = "",
                       .threads = 1,
                       .thread = [&](std::size_t) { return ThreadFacts{7, "", "", signal}; },
                       .frames = [&](std::size_t) { return frames; },
                       .isIn = [](std::size_t, std::string_view) { return false; }});
    EXPECT_EQ(std::to_string(site->interrupted) + ' ' + std::to_string(site->frame), found) << what;
  }
}

// Where neither a register nor a number is the exception's thread.
TEST(CrashMarkTest, TheThreadWithTheHandlerIsMarked) {
  DataDictionary crashLog;
  DataArray threads;
  for (const char* module : {"a.so", "crashhandler.so", "crashhandler.so.1"}) {
    DataDictionary frame;
    frame.Set(String(crash_report::property::kModuleName), module);
    DataArray stack;
    stack.Append(frame);
    DataDictionary thread;
    thread.Set(String(crash_report::property::kCallstack), stack);
    threads.Append(thread);
  }
  crashLog.Set(String(crash_report::property::kThreads), threads);
  MarkCrash(crashLog);
  std::string marks;
  for (const DataValue& thread : *crashLog.FindAs<DataArray>(crash_report::property::kThreads))
    marks += thread.As<DataDictionary>()->Find(crash_report::property::kCrashed) ? 'x' : '.';
  EXPECT_EQ(marks, ".x.");
}

}  // namespace
}  // namespace tarvo::report
