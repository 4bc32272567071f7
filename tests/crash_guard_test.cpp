// What the crash guard adds: crashes that the capture alone does not see or does not survive, the
// facts of the fault, the end of a capture that would go on for ever, and the program's own
// handlers. The same without the guard is the control of each.

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/files.h"
#include "support/program.h"
#include "support/report_layout.h"

namespace {

using Texts = std::vector<std::string>;
using Pairs = std::vector<std::pair<std::string, std::string>>;

struct GuardedRun {
  ProgramResult program;
  std::string text;
  Report report;  ///< empty when there is no report
};

GuardedRun RunGuarded(const std::string& program, Texts arguments, ProgramOptions options = {}) {
  const TemporaryDirectory scratch;
  const std::string file = scratch / "guard_bugreport.txt";
  arguments.insert(arguments.begin(), BuildDirectory() + program);
  arguments.push_back("--g_crashReportUrl=" + file);
  GuardedRun run;
  run.program = RunProgram(arguments, options);
  run.text = ReadFile(file);
  if (!run.text.empty()) {
    EXPECT_NO_THROW(run.report = ReadReport(run.text)) << run.program.Describe();
    EXPECT_EQ(FindFaults(run.report), Texts()) << run.text;
  }
  return run;
}

GuardedRun RunSubject(const std::string& scenario, const std::string& deadline = "30") {
  return RunGuarded("/tests/guard_subject", {scenario, "--g_crashGuardDeadline=" + deadline});
}

/// The thread with the facts of the fault; the first thread when there is none.
const ReportThread& Crashed(const Report& report) {
  const auto isCrashed = [](const ReportThread& thread) {
    return std::ranges::any_of(thread.variables,
                               [](const auto& pair) { return pair.first == "FaultSignal"; });
  };
  const auto found = std::ranges::find_if(report.threads, isCrashed);
  return found == report.threads.end() ? report.threads.at(0) : *found;
}

std::string Value(const ReportThread& thread, std::string_view name) {
  for (const auto& [variable, value] : thread.variables)
    if (variable == name) return value;
  return "<none>";
}

/// How the process ends without the guard: by this signal, or, for 0, not at all.
struct Kind {
  const char* name;
  const char* signal;
  const char* number;
  const char* function;
  int unguarded;
};

void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

constexpr Kind kKinds[] = {
    {"stack-overflow", "SIGSEGV", "0x0000000B", "CrashStackOverflow", SIGSEGV},
    {"abort", "SIGABRT", "0x00000006", "CrashAbort", SIGABRT},
    {"uncaught-exception", "SIGABRT", "0x00000006", "CrashUncaught", SIGABRT},
    {"heap-corruption", "SIGABRT", "0x00000006", "CrashHeapCorruption", SIGABRT}};

class GuardMatrix : public testing::TestWithParam<std::tuple<Kind, const char*>> {};

TEST_P(GuardMatrix, LeavesOneCompleteReport) {
  const auto& [kind, place] = GetParam();
  if (kSanitized && std::string_view(kind.name) == "heap-corruption")
    GTEST_SKIP() << "the sanitizer has its own heap";
  const Texts arguments = {"--kind", kind.name, "--in", place, "--threads", "12"};
  const GuardedRun run = RunGuarded("/bin/crashdemo", arguments);
  EXPECT_EQ(run.program.exitStatus, 1) << run.program.Describe();
  ASSERT_FALSE(run.report.threads.empty()) << run.program.Describe();
  EXPECT_EQ(run.report.exception.at("ExceptionNumber"), kind.number);
  const ReportThread& crashed = Crashed(run.report);
  EXPECT_EQ(Value(crashed, "FaultSignal"), kind.signal);
  EXPECT_TRUE(crashed.Shows(kind.function)) << run.text;
  const std::string_view where = place;
  EXPECT_EQ(run.report.threads.size(), where == "main" ? 13U : 14U);
  EXPECT_EQ(crashed.Name(), where == "worker" ? "victim" : "crashdemo");
  for (const ReportThread& thread : run.report.threads) EXPECT_FALSE(thread.frames.empty());

  if (kSanitized) return;
  Texts unguarded = arguments;
  unguarded.emplace_back("--g_crashGuard=false");
  const GuardedRun control = RunGuarded("/bin/crashdemo", unguarded);
  EXPECT_EQ(control.program.signal, kind.unguarded) << control.program.Describe();
  EXPECT_EQ(control.text, "");
}

INSTANTIATE_TEST_SUITE_P(Kinds, GuardMatrix,
                         testing::Combine(testing::ValuesIn(kKinds),
                                          testing::Values("main", "worker", "plugin")),
                         [](const auto& test) {
                           std::string name = std::string(std::get<0>(test.param).name) + "_" +
                                              std::get<1>(test.param);
                           std::ranges::replace(name, '-', '_');
                           return name;
                         });

TEST(Guard, NamesTheUncaughtException) {
  const GuardedRun run =
      RunGuarded("/bin/crashdemo", {"--kind", "uncaught-exception", "--threads", "0"});
  const ReportThread& crashed = Crashed(run.report);
  const Pairs expected = {{"ThreadName", "victim"},
                          {"Task", "running the fault"},
                          {"Document", "city.scene"},
                          {"ExceptionType", "std::out_of_range"},
                          {"ExceptionMessage", "tile 2204 of 318"},
                          {"FaultSignal", "SIGABRT"},
                          {"FaultCode", "SI_TKILL, sent to this thread"}};
  ASSERT_GE(crashed.variables.size(), expected.size());
  EXPECT_EQ(Pairs(crashed.variables.begin(), crashed.variables.begin() + 7), expected);
}

TEST(Guard, ShowsTheRegistersAtTheFault) {
  const GuardedRun run = RunSubject("known-registers");
  ASSERT_EQ(run.program.exitStatus, 1) << run.program.Describe();
  Pairs found = Crashed(run.report).variables;
  const std::string& printed = run.program.output;
  Pairs expected = {{"ThreadName", "guard_subject"},
                    {"FaultSignal", "SIGSEGV"},
                    {"FaultCode", "SEGV_MAPERR, address not mapped"},
                    {"FaultAddress", "0x0000000000000200"},
                    {"Fault_rip", printed.substr(0, 18)},
                    {"Fault_rsp", printed.substr(19, 18)},
                    {"Fault_rax", "0x00000000000000a1"},
                    {"Fault_rbx", "0x00000000000000b1"},
                    {"Fault_rcx", "0x00000000000000c1"},
                    {"Fault_rdx", "0x00000000000000d1"},
                    {"Fault_rsi", "0x0000000000000051"},
                    {"Fault_rdi", "0x00000000000000d2"},
                    {"Fault_rbp", "0x00000000000000b2"},
                    {"Fault_r8", "0x0000000000000008"},
                    {"Fault_r9", "0x0000000000000009"},
                    {"Fault_r10", "0x0000000000000010"},
                    {"Fault_r11", "0x0000000000000011"},
                    {"Fault_r12", "0x0000000000000012"},
                    {"Fault_r13", "0x0000000000000013"},
                    {"Fault_r14", "0x0000000000000014"},
                    {"Fault_r15", "0xfedcba9876543210"}};
  // Behind these stands what the capture itself knows.
  ASSERT_GT(found.size(), expected.size() + 1);
  EXPECT_EQ(found[expected.size()].first, "Fault_eflags");
  EXPECT_EQ(found[expected.size() + 1].first, "CrashTime");
  found.resize(expected.size());
  EXPECT_EQ(found, expected);
}

TEST(Guard, NamesTheSenderOfASignal) {
  const GuardedRun run = RunSubject("killed");
  const ReportThread& crashed = Crashed(run.report);
  EXPECT_EQ(Value(crashed, "FaultSignal"), "SIGBUS");
  EXPECT_EQ(Value(crashed, "FaultCode"), "SI_USER, sent by kill");
  EXPECT_EQ(Value(crashed, "FaultSender"), run.program.output);
}

// --- stacks --------------------------------------------------------------------------------------

TEST(GuardedStacks, EveryThreadCanOverflow) {
  const struct {
    const char* scenario;
    std::size_t threads;
    int exitStatus;
  } kCases[] = {{"c11-thread", 2, 1},
                {"many-overflows", 9, 1},
                {"edge-of-the-stack", 2, 1},
                {"forked-overflow", 2, 0}};
  for (const auto& [scenario, threads, exitStatus] : kCases) {
    const GuardedRun run = RunSubject(scenario);
    EXPECT_EQ(run.program.exitStatus, exitStatus) << scenario << run.program.Describe();
    EXPECT_EQ(run.report.threads.size(), threads) << scenario;
    for (const ReportThread& thread : run.report.threads)
      EXPECT_FALSE(thread.frames.empty()) << scenario << run.text;
  }
}

// A report of a runaway thread has the innermost frames, as many as there is room for.
TEST(GuardedStacks, AnOverflowShowsItsRecursion) {
  const GuardedRun run =
      RunGuarded("/bin/crashdemo", {"--kind", "stack-overflow", "--threads", "20"});
  const ReportThread& crashed = Crashed(run.report);
  EXPECT_EQ(crashed.frames.size(), 99U);
  const auto recursion = std::ranges::count_if(crashed.frames, [](const ReportFrame& frame) {
    return frame.text.find("CrashStackOverflow") != std::string::npos;
  });
  EXPECT_GT(recursion, 80);
}

TEST(GuardedStacks, AreReleasedHoweverAThreadEnds) {
  const ProgramResult result = RunSubject("thread-ends").program;
  EXPECT_EQ(result.output, "ended\n") << result.Describe();
  EXPECT_EQ(result.exitStatus, 0) << result.Describe();
}

TEST(GuardedStacks, AreThereInEveryThread) {
  if (kSanitized) GTEST_SKIP() << "the sanitizer has alternate stacks of its own";
  EXPECT_EQ(RunSubject("stack-sizes").program.output, "there 65536\nthere 65536\nthere 65536\n");
}

// Calls do not come through the host library then; what does not depend on that is there.
TEST(HostBehindTheCLibrary, SaysWhatIsMissing) {
  if (kSanitized) GTEST_SKIP() << "the sanitizer's runtime comes first in any case";
  ProgramOptions behind;
  behind.environment = {"LD_PRELOAD=libc.so.6"};
  const ProgramResult stacks = RunGuarded("/tests/guard_subject", {"stack-sizes"}, behind).program;
  EXPECT_EQ(stacks.output, "there 65536\nnone 0\nnone 0\n");
  EXPECT_NE(stacks.errors.find("New threads get no alternate stack: the host library was loaded "
                               "behind the C library; link the program with it, or preload it."),
            std::string::npos)
      << stacks.errors;
  for (const char* scenario : {"before-default", "before-raise", "after-put-back"}) {
    const GuardedRun run = RunGuarded("/tests/guard_subject", {scenario}, behind);
    EXPECT_EQ(run.program.output, "recovered\nrecovered\n") << scenario;
    EXPECT_EQ(run.report.threads.size(), 1U) << scenario << run.program.Describe();
  }
}

// --- the program's own handlers ------------------------------------------------------------------

TEST(OwnHandlers, RecoverAndDecline) {
  const struct {
    const char* scenario;
    const char* output;
  } kCases[] = {{"before-default", "recovered\nrecovered\n"},
                {"before-raise", "recovered\nrecovered\n"},
                {"before-once", ""},
                {"before-repair", "recovered\n"},
                {"after-call", "recovered\nrecovered\n"},
                {"after-put-back", "recovered\nrecovered\n"},
                {"after-default", "recovered\nrecovered\n"},
                {"after-raise", "recovered\nrecovered\n"},
                {"after-sigset", "recovered\nrecovered\n"}};
  for (const auto& [scenario, output] : kCases) {
    const GuardedRun run = RunSubject(scenario);
    EXPECT_EQ(run.program.exitStatus, 1) << scenario << run.program.Describe();
    EXPECT_EQ(run.program.output, output) << scenario;
    EXPECT_EQ(run.report.threads.size(), 1U) << scenario;
  }
  const GuardedRun demo =
      RunGuarded("/bin/crashdemo", {"--kind", "recovering-handler", "--threads", "12"});
  EXPECT_TRUE(Crashed(demo.report).Shows("CrashAfterRecovery")) << demo.program.Describe();
}

TEST(OwnHandlers, ArePutBackWithTheHost) {
  const std::string round = "with the host 0 are as before, then 7, terminate too\n";
  EXPECT_EQ(RunSubject("restored").program.output, round + round);
}

// --- the end -------------------------------------------------------------------------------------

constexpr const char* kLate =
    "tarvo: The capture of the crash did not end within 1 seconds; the process ends now.\n";

// A thread in the kernel that cannot be stopped is no reason to wait: it has the place at which it
// entered the kernel, and a reason.
TEST(StuckThread, DoesNotHoldUpTheCapture) {
  for (const char* guard : {"true", "false"}) {
    const GuardedRun run = RunGuarded("/bin/crashdemo", {"--kind", "stuck-thread", "--threads", "3",
                                                         std::string("--g_crashGuard=") + guard});
    EXPECT_EQ(run.program.exitStatus, 1) << run.program.Describe();
    ASSERT_EQ(run.report.threads.size(), 5U);
    EXPECT_TRUE(run.report.Named("victim")->Shows("CrashNullWrite"));
    const ReportThread* stuck = run.report.Named("render-0");
    ASSERT_NE(stuck, nullptr);
    EXPECT_EQ(Value(*stuck, "FramesMissing"), "it did not stop: it waits in the kernel");
    EXPECT_EQ(Value(*stuck, "RegistersMissing"), "it did not stop");
    EXPECT_EQ(stuck->frames.size(), 2U) << run.text;
  }
}

// The control of what follows: with no deadline the same callback hangs.
TEST(Deadline, WithoutItTheCaptureHangs) {
  ProgramOptions brief;
  brief.timeout = std::chrono::milliseconds(2500);
  const GuardedRun run =
      RunGuarded("/tests/guard_subject", {"late-callback", "--g_crashGuardDeadline=0"}, brief);
  EXPECT_TRUE(run.program.timedOut) << run.program.Describe();
}

TEST(Deadline, FlushesAndEndsAlsoWhenFlushingHangs) {
  const GuardedRun flushed = RunSubject("late-callback", "1");
  EXPECT_EQ(flushed.program.output, "half of it");
  const GuardedRun held = RunSubject("late-streams-held", "1");
  for (const ProgramResult& result : {flushed.program, held.program}) {
    EXPECT_EQ(result.exitStatus, 1) << result.Describe();
    EXPECT_EQ(result.errors, kLate);
  }
}

TEST(Deadline, KillsWhenNoSignalReachesTheCapture) {
  const GuardedRun run = RunSubject("stuck-capture", "1");
  EXPECT_EQ(run.program.signal, SIGKILL) << run.program.Describe();
}

TEST(Reraise, EndsByTheSignalAfterTheReport) {
  const struct {
    const char* kind;
    const char* name;
    int signal;
  } kCases[] = {{"null-write", "SIGSEGV", SIGSEGV},
                {"divide", "SIGFPE", SIGFPE},
                {"trap", "SIGTRAP", SIGTRAP},
                {"abort", "SIGABRT", SIGABRT},
                {"stack-overflow", "SIGSEGV", SIGSEGV}};
  for (const auto& [kind, name, signal] : kCases) {
    const GuardedRun run =
        RunGuarded("/bin/crashdemo", {"--kind", kind, "--g_crashGuardReraise=true"});
    EXPECT_EQ(run.program.signal, signal) << kind << run.program.Describe();
    ASSERT_FALSE(run.report.threads.empty()) << kind;
    EXPECT_EQ(Value(Crashed(run.report), "FaultSignal"), name);
  }
}

// The writer, the guard's line, the one callback and the chain behind the report, in this order; a
// callback that faults is passed over, and the end by the signal comes last.
TEST(Callbacks, StandBesideEachOther) {
  const TemporaryDirectory scratch;
  ProgramOptions options;
  options.directory = scratch.Path();
  const ProgramResult result =
      RunProgram({BuildDirectory() + "/tests/guard_subject", "all-callbacks"}, options);
  EXPECT_EQ(result.signal, SIGSEGV) << result.Describe();
  const std::string process = result.output.substr(0, result.output.find('\n'));
  const std::string report = scratch / (process + "_bugreport.txt");
  EXPECT_EQ(result.errors, "before\ntarvo: Process " + process +
                               " (guard_subject) crashed with SIGSEGV; its report is " + report +
                               "\nsecondary\nfirst " + report + " TARVO_Crash_Report\nsecond " +
                               report + " TARVO_Crash_Report\n");
  EXPECT_NO_THROW((void)ReadReport(ReadFile(report)));
}

}  // namespace
