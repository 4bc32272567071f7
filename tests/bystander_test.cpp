// What a capture must find and must not disturb: whatever other threads do, and however the crash
// comes, the crashing function is in its place, each bystander's own function is in its stack, and
// nothing of the program runs on. In both ways of taking stacks: stopped threads are walked; where
// tracing is refused, threads are asked.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/files.h"
#include "support/program.h"
#include "support/report_layout.h"

namespace {

struct Scene {
  const char* bystander;
  int count;
  const char* bystanderFunction;
  const char* crash;
  const char* crashFunction;
  /// What a thread that is asked cannot give; null when it can. Then FramesMissing says why.
  const char* notWhenAsked = nullptr;
  /// What the bystander has called, where that matters; null otherwise.
  const char* callee = nullptr;
};

void PrintTo(const Scene& scene, std::ostream* out) {
  *out << scene.bystander << ", " << scene.crash;
}

constexpr Scene kScenes[] = {
    {"polls", 1, "BystanderPolls", "null-write", "CrashNullWrite"},
    {"epolls", 1, "BystanderEpolls", "null-write", "CrashNullWrite"},
    {"sleeps", 1, "BystanderSleeps", "null-write", "CrashNullWrite"},
    {"computes", 100, "BystanderComputes", "null-write", "CrashNullWrite"},
    {"awaits-signals", 1, "BystanderAwaitsSignals", "null-write", "CrashNullWrite",
     "it cannot be traced, and waits for signals itself"},
    {"blocks-signals", 3, "BystanderBlocksSignals", "null-write", "CrashNullWrite",
     "it cannot be traced, and blocks SIGHUP"},
    {"exits", 3, "BystanderExits", "null-write", "CrashNullWrite"},
    {"broken-stack", 1, "BystanderWithABrokenStack", "null-write", "CrashNullWrite",
     "it cannot be traced, and blocks SIGHUP"},
    {"false-table", 1, "BystanderWithAFalseTable", "null-write", "CrashNullWrite"},
    {"calls-wildly", 1, "BystanderCallsWildly", "null-write", "CrashNullWrite", nullptr,
     "[0x123000]"},
    {"lists-modules", 1, "BystanderListsModules", "null-write", "CrashNullWrite"},
    {"registers-frames", 3, "BystanderRegistersFrames", "null-write", "CrashNullWrite"},
    {"crashes-too", 3, "BystanderCrashesToo", "held-up", "CrashHeldUp", nullptr,
     "CrashInGeneratedCode"},
    {"polls", 1, "BystanderPolls", "one-argument", "CrashNullWrite"},
    {"polls", 1, "BystanderPolls", "return", "[0x123000]"},
    {"polls", 1, "BystanderPolls", "generated-code", "CrashInGeneratedCode"},
    {"polls", 1, "BystanderPolls", "generated-leaf", "CrashInAGeneratedLeaf"},
    {"polls", 1, "BystanderPolls", "vfork", "CrashNullWrite"},
    {"polls", 1, "BystanderPolls", "no-descriptors", "CrashNullWrite"},
    {"polls", 1, "BystanderPolls", "stops", "CrashNullWrite"},
    {"polls", 1, "BystanderPolls", "no-tgkill", "CrashNullWrite", "it could not be asked"},
    {"polls", 1, "BystanderPolls", "no-clone", "CrashNullWrite"},
    {"polls", 1, "BystanderPolls", "no-ptrace", "CrashNullWrite"},
    {"polls", 1, "BystanderPolls", "no-wait", "CrashNullWrite"},
    {"polls", 20, "BystanderPolls", "no-tracer", "CrashNullWrite"},
    {"polls", 20, "BystanderPolls", "no-tracer-no-wait", "CrashNullWrite"}};

/// Twelve stacks from 4 KiB on: a handler fits on none of the first, its walk on few. With the
/// guard the threads have others for that.
constexpr Scene kSmallStack{"small-stack", 12, "BystanderOnASmallStack", "null-write",
                            "CrashNullWrite"};
constexpr Scene kSmallStackAsked{"small-stack",
                                 1,
                                 "BystanderOnASmallStack",
                                 "null-write",
                                 "CrashNullWrite",
                                 "it cannot be traced, and its stack has no room for a handler"};

struct Outcome {
  ProgramResult program;
  std::string text;
  Report report;
};

Outcome RunScene(const Scene& scene, bool asks, bool guard, bool intoFile = true,
                 std::vector<std::string> words = {}) {
  const TemporaryDirectory scratch;
  const std::string file = scratch / "scene_bugreport.txt";
  words.push_back(BuildDirectory() + "/tests/bystander_subject");
  if (asks) words.emplace_back("--ask");
  words.insert(words.end(), {scene.bystander, std::to_string(scene.count), scene.crash,
                             guard ? "--g_crashGuard=true" : "--g_crashGuard=false"});
  if (intoFile) words.push_back("--g_crashReportUrl=" + file);
  Outcome outcome;
  outcome.program = RunProgram(words);
  outcome.text = intoFile ? ReadFile(file) : outcome.program.errors;
  EXPECT_NO_THROW(outcome.report = ReadReport(outcome.text)) << outcome.program.Describe();
  EXPECT_EQ(FindFaults(outcome.report), std::vector<std::string>()) << outcome.text;
  return outcome;
}

std::string Value(const ReportThread& thread, std::string_view name) {
  for (const auto& [variable, value] : thread.variables)
    if (variable == name) return value;
  return "";
}

/// The place of the first frame that shows `text`, from place `from` on; -1 when there is none.
long Place(const ReportThread& thread, std::string_view text, long from = 0) {
  const auto shows = [&](const ReportFrame& frame) {
    return frame.text.find(text) != std::string::npos;
  };
  const auto found = std::find_if(thread.frames.begin() + from, thread.frames.end(), shows);
  return found == thread.frames.end() ? -1 : found - thread.frames.begin();
}

const ReportThread* CrashedThread(const Report& report) {
  const auto found = std::ranges::find_if(report.threads, [](const ReportThread& thread) {
    return !Value(thread, "CrashTime").empty();
  });
  return found == report.threads.end() ? nullptr : &*found;
}

void CheckBystanders(const Scene& scene, const Outcome& outcome, bool asks) {
  long found = 0;
  for (const ReportThread& thread : outcome.report.threads) {
    if (&thread == CrashedThread(outcome.report)) continue;
    if (asks && scene.notWhenAsked != nullptr) {
      found += Value(thread, "FramesMissing") == scene.notWhenAsked ? 1 : 0;
      continue;
    }
    // Its own function, and behind it where the thread began, unless its stack is gone.
    const long place = Place(thread, scene.bystanderFunction);
    const bool isCalleeThere =
        scene.callee == nullptr || (place > 0 && Place(thread, scene.callee) == place - 1);
    const bool isOnSmallStack = std::string_view(scene.bystander) == "small-stack";
    const bool isWhole = Place(thread, "BystanderThread", place + 1) >= 0 ||
                         std::string_view(scene.bystander) == "broken-stack" ||
                         (isOnSmallStack && Value(thread, "GuessedFrames").empty());
    found += place >= 0 && isCalleeThere && isWhole ? 1 : 0;
  }
  EXPECT_EQ(found, scene.count) << outcome.text.substr(0, 20000);
}

void Check(const Scene& scene, const Outcome& outcome, bool asks) {
  EXPECT_EQ(outcome.program.exitStatus, 1) << outcome.program.Describe();
  EXPECT_EQ(outcome.program.output.find("ran on"), std::string::npos);
  const ReportThread* crashed = CrashedThread(outcome.report);
  ASSERT_NE(crashed, nullptr) << outcome.text;
  // Behind the handler's frames and the signal trampoline.
  const long place = Place(*crashed, scene.crashFunction);
  EXPECT_GE(place, 2) << outcome.text.substr(0, 20000);
  EXPECT_GT(Place(*crashed, "main"), place) << outcome.text.substr(0, 20000);
  CheckBystanders(scene, outcome, asks);
}

class Bystanders : public testing::TestWithParam<std::tuple<Scene, bool, bool>> {};

TEST_P(Bystanders, AreFoundAndDoNotRunOn) {
  const auto& [scene, asks, guard] = GetParam();
  if (kSanitized && std::string_view(scene.bystander) == "exits")
    GTEST_SKIP() << "the sanitizer's runtime stands in front of exit";
  Check(scene, RunScene(scene, asks, guard), asks);
}

std::string NameOfCase(const testing::TestParamInfo<Bystanders::ParamType>& info) {
  const auto& [scene, asks, guard] = info.param;
  std::string name = std::string(scene.bystander) + "_" + scene.crash +
                     (asks ? "_asked" : "_stopped") + (guard ? "_guarded" : "");
  std::ranges::replace(name, '-', '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Scenes, Bystanders,
                         testing::Combine(testing::ValuesIn(kScenes), testing::Bool(),
                                          testing::Bool()),
                         NameOfCase);
const std::tuple<Scene, bool, bool> kSmallStackCases[] = {{kSmallStack, false, false},
                                                          {kSmallStack, false, true},
                                                          {kSmallStackAsked, true, false},
                                                          {kSmallStack, true, true}};
INSTANTIATE_TEST_SUITE_P(SmallStack, Bystanders, testing::ValuesIn(kSmallStackCases), NameOfCase);

// The control for all scenes that would hang without a measure: the limit of RunProgram ends them.
TEST(Capture, WouldBeEndedByTheTestsLimit) {
  using std::chrono::operator""ms;
  const std::string program = BuildDirectory() + "/tests/bystander_subject";
  EXPECT_TRUE(RunProgram({program, "polls", "1", "hold"}, {.timeout = 500ms}).timedOut);
}

// The guard's actions run on the thread's own alternate stack, wherever that is.
TEST(Capture, FindsTheCrashBelowAnAlternateStack) {
  const Scene scene{"polls", 1, "BystanderPolls", "alternate-stack-above", "CrashNullWrite"};
  const Outcome outcome = RunScene(scene, false, true);
  const ReportThread* crashed = CrashedThread(outcome.report);
  ASSERT_NE(crashed, nullptr) << outcome.text;
  EXPECT_GE(Place(*crashed, "CrashNullWrite"), 2) << outcome.text;
  EXPECT_GT(static_cast<long>(crashed->frames.size()), Place(*crashed, "CrashNullWrite") + 2);
}

// A process that has shut itself in has no /proc, or one that names other programs' threads: the
// crashing thread alone can be found. Without /proc the report goes to standard error, as its
// folder is not there either.
TEST(Capture, LeavesAReportWithoutItsProc) {
  if (geteuid() != 0) GTEST_SKIP() << "only root may change the root directory";
  for (const Scene& scene : {Scene{"polls", 1, "", "no-proc", "CrashWithoutProc"},
                             Scene{"polls", 1, "", "foreign-proc", "CrashNullWrite"}}) {
    const Outcome outcome = RunScene(scene, false, false, false);
    EXPECT_EQ(outcome.program.exitStatus, 1) << outcome.program.Describe();
    ASSERT_EQ(outcome.report.threads.size(), 1U) << scene.crash;
    EXPECT_GE(Place(outcome.report.threads[0], scene.crashFunction), 2) << outcome.text;
  }
}

// Workers of the kernel's are threads of the process that have no stack in it.
TEST(Capture, ListsWorkersOfTheKernelWithoutFrames) {
  const Scene scene{"kernel-worker", 1, "BystanderWithAKernelWorker", "null-write",
                    "CrashNullWrite"};
  for (const bool asks : {false, true}) {
    const Outcome outcome = RunScene(scene, asks, false);
    if (outcome.program.exitStatus == 77) GTEST_SKIP() << "this kernel has no io_uring";
    Check(scene, outcome, asks);
    const auto isWorker = [](const ReportThread& thread) {
      return Value(thread, "FramesMissing") == "it is a worker of the kernel's" &&
             thread.frames.empty();
    };
    EXPECT_EQ(std::ranges::count_if(outcome.report.threads, isWorker), 1) << outcome.text;
  }
}

std::string BuildIdName(const ReportModule& module) {
  char name[40];
  std::snprintf(name, sizeof(name), "BuildId_%#lx", static_cast<unsigned long>(module.base));
  return name;
}

// A store of 512 variables a thread must not lose a build id.
TEST(Capture, HasTheBuildIdOfEachOfManyModules) {
  const Scene scene{"polls", 1, "BystanderPolls", "many-modules", "CrashNullWrite"};
  const Outcome outcome = RunScene(scene, false, true);
  Check(scene, outcome, false);
  const ReportThread* crashed = CrashedThread(outcome.report);
  ASSERT_NE(crashed, nullptr);
  std::map<std::string, std::string> variables(crashed->variables.begin(),
                                               crashed->variables.end());
  long found = 0;
  for (const ReportModule& module : outcome.report.modules)
    found += variables[BuildIdName(module)].size() == 40 ? 1 : 0;
  EXPECT_GE(found, 5000);
  EXPECT_GE(found, static_cast<long>(outcome.report.modules.size()) - 1);  // the kernel's own
}

// Who is traced already cannot be stopped, and is asked.
TEST(Capture, TakesStacksUnderADebugger) {
  const Scene scene{"polls", 2, "BystanderPolls", "tracer", "CrashNullWrite"};
  // Not before the host has started, which leaves a program alone that a debugger has started.
  const std::string start =
      "out=$(mktemp); \"$@\" >\"$out\" & until grep -q ready \"$out\"; do sleep 0.05; done; ";
  const std::string end = " >/dev/null 2>&1; wait $!; status=$?; rm \"$out\"; exit $status";
  constexpr std::pair<const char*, const char*> kTracers[] = {
      {"strace", "strace -f -qq -o /dev/null -p $!"},
      {"gdb", "gdb -nx -batch -p $! -ex 'handle all nostop noprint pass' -ex continue"}};
  for (const auto& [tracer, command] : kTracers) {
    if (RunProgram({"/bin/sh", "-c", std::string("command -v ") + tracer}).exitStatus != 0)
      continue;
    const Outcome outcome =
        RunScene(scene, false, false, true, {"/bin/sh", "-c", start + command + end, "sh"});
    Check(scene, outcome, false);
    const ReportThread* crashed = CrashedThread(outcome.report);
    EXPECT_TRUE(crashed != nullptr && !Value(*crashed, "RegistersMissing").empty()) << tracer;
  }
}

// Registers are the thread's own or zeros with a reason, also where the process may not be dumped.
TEST(Capture, ReadsRegistersOfAProcessThatChangedItsUser) {
  if (geteuid() != 0) GTEST_SKIP() << "only root may become another user";
  const Scene scene{"computes", 1, "BystanderComputes", "another-user", "CrashAsAnotherUser"};
  const Outcome outcome = RunScene(scene, false, false, false);
  for (const ReportThread& thread : outcome.report.threads) {
    EXPECT_EQ(Value(thread, "RegistersMissing"), "");
    EXPECT_NE(thread.registers[8].second, "0000000000000000") << thread.registers[8].first;
  }
  EXPECT_EQ(outcome.program.output, "ready\n");
}

}  // namespace
