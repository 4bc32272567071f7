// What really happens in a crashing process: locks that nobody lets go of, threads that cannot
// answer, faults within the capture, surroundings that end or hold up a process. Each program here
// would hang, die of a signal or lose its report without the measure that its case is about.

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/program.h"
#include "support/report_layout.h"

namespace {

struct SubjectRun {
  ProgramResult program;
  std::string text;  ///< the report file
};

SubjectRun RunSubject(const std::vector<std::string>& arguments, bool intoFile = true,
                      ProgramOptions options = {}) {
  const TemporaryDirectory scratch;
  const std::string file = scratch / "subject_bugreport.txt";
  std::vector<std::string> command = {BuildDirectory() + "/tests/crash_subject"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  if (intoFile) command.push_back("--g_crashReportUrl=" + file);
  SubjectRun run;
  run.program = RunProgram(command, options);
  run.text = ReadFile(file);
  return run;
}

/// A scenario whose whole point is that the process ends with status 1 and a complete report.
struct Measure {
  const char* scenario;
  std::size_t threads;   ///< in the report; 0 where that is up to chance
  std::size_t answered;  ///< of these, how many have frames
};

void PrintTo(const Measure& measure, std::ostream* out) { *out << measure.scenario; }

constexpr Measure kMeasures[] = {
    {"unwinder-fault", 2, 2},     {"destructors", 2, 2},  {"main-returns", 22, 22},
    {"thread-churn", 0, 0},       {"leader-gone", 2, 1},  {"hangup-ignored", 2, 2},
    {"loader-held", 2, 2},        {"other-child", 1, 1},  {"cancelled", 2, 2},
    {"secondary-callback", 1, 1}, {"signal-storm", 3, 3}, {"fork-refused", 1, 1},
    {"tracer-killed", 1, 1}};

class CrashMeasure : public testing::TestWithParam<Measure> {};

TEST_P(CrashMeasure, LeavesOneCompleteReport) {
  const Measure& measure = GetParam();
  if (kSanitized && std::string_view(measure.scenario) == "loader-held") GTEST_SKIP() << kNoDlopen;
  const SubjectRun run = RunSubject({measure.scenario});
  ASSERT_EQ(run.program.exitStatus, 1) << run.program.Describe();
  Report report;
  ASSERT_NO_THROW(report = ReadReport(run.text)) << run.text;
  EXPECT_EQ(FindFaults(report), std::vector<std::string>()) << run.text;
  if (measure.threads == 0) return;
  EXPECT_EQ(report.threads.size(), measure.threads);
  const auto answered = std::ranges::count_if(
      report.threads, [](const ReportThread& thread) { return !thread.frames.empty(); });
  EXPECT_EQ(static_cast<std::size_t>(answered), measure.answered) << run.text;
}

INSTANTIATE_TEST_SUITE_P(Scenarios, CrashMeasure, testing::ValuesIn(kMeasures),
                         [](const testing::TestParamInfo<Measure>& test) {
                           std::string name = test.param.scenario;
                           std::ranges::replace(name, '-', '_');
                           return name;
                         });

// The control of "destructors": at the same point an ordinary exit waits for ever.
TEST(CrashEnd, OrdinaryExitWouldHang) {
  ProgramOptions brief;
  brief.timeout = std::chrono::milliseconds(1500);
  EXPECT_TRUE(RunSubject({"--no-host", "destructors-at-exit"}, false, brief).program.timedOut);
}

TEST(CrashCallbacks, FaultInACallbackEndsTheProcess) {
  const SubjectRun run = RunSubject({"callback-crashes"});
  EXPECT_EQ(run.program.exitStatus, 1) << run.program.Describe();
  EXPECT_EQ(run.program.errors, "half of it\n");
}

TEST(CrashCallbacks, SecondaryRunsAfterTheReport) {
  EXPECT_EQ(RunSubject({"secondary-callback"}).program.errors, "after the report\n");
}

// What a program has attached stands in the report whole, in the document without its marks.
TEST(Attachments, StandBehindTheException) {
  const TemporaryDirectory scratch;
  ProgramOptions options;
  options.directory = scratch.Path();
  std::string log;
  for (int i = 0; i < 20'000; ++i) log += "line " + std::to_string(i) + '\n';
  std::ofstream(scratch / "app.log") << log << "unended";
  std::ofstream(scratch / "long.log") << std::string(70'000, 'x');
  const ProgramResult result =
      RunProgram({BuildDirectory() + "/tests/crash_subject", "attachments"}, options);
  ASSERT_EQ(result.exitStatus, 1) << result.Describe();
  std::vector<std::string> expected = {"[gone.log]",
                                       "(cannot be read: No such file or directory)",
                                       "[/]",
                                       "(cannot be read: it is no regular file)",
                                       "[Settings]",
                                       "a = 1",
                                       "}",
                                       "?[31m red?",
                                       "",
                                       "  b",
                                       "[app.log, its last lines]"};
  for (int i = 19'801; i < 20'000; ++i) expected.push_back("line " + std::to_string(i));
  expected.insert(expected.end(),
                  {"unended", "[long.log, its last lines]", std::string(2048, 'x') + "..."});
  const Report report = ReadReport(ReadFile(scratch / "c_bugreport.txt"));
  EXPECT_EQ(report.log, expected);
  const auto handler = std::ranges::find(report.modules, "crashhandler.so", &ReportModule::name);
  ASSERT_NE(handler, report.modules.end());
  EXPECT_EQ(handler->build, "c-7");
  const std::string tarvo = BuildDirectory() + "/bin/tarvo";
  RunProgram({tarvo, "resolve", "--quiet", "c_bugreport.txt", "--cache", "cache"}, options);
  const std::string shown =
      RunProgram({tarvo, "show", "--all", "c_bugreport.resolved.json"}, options).output;
  EXPECT_NE(shown.find("a = 1\n  }\n  ?[31m red?\n"), std::string::npos) << shown;
  EXPECT_EQ(shown.find("| a = 1"), std::string::npos);
}

TEST(Hangup, GoesToThePreviousHandlerWhileNoCaptureRuns) {
  const SubjectRun run = RunSubject({"hangup-handler"});
  EXPECT_EQ(run.program.exitStatus, 0) << run.program.Describe();
  EXPECT_EQ(run.program.errors, "previous\nprevious\nrestored\nprevious\n");
  EXPECT_EQ(run.text, "");
}

// The report goes to standard error as a whole where there is no file for it, also while another
// thread holds the stream's lock for ever, or when the file takes only a part.
TEST(ReportDestination, FallsBackToStandardError) {
  struct Case {
    const char* scenario;
    const char* url;
  };
  const TemporaryDirectory scratch;
  const std::string limited = scratch / "limited_bugreport.txt";
  const Case cases[] = {{"null-write", ""},
                        {"null-write", "--g_crashReportUrl=/nonexistent/folder/report.txt"},
                        {"streams-held", ""},
                        {"file-limit", limited.c_str()}};
  for (const Case& test : cases) {
    std::vector<std::string> arguments = {test.scenario};
    const std::string url = test.url;
    if (!url.empty())
      arguments.push_back(url.starts_with("--") ? url : "--g_crashReportUrl=" + url);
    const ProgramResult result = RunSubject(arguments, false).program;
    EXPECT_EQ(result.exitStatus, 1) << test.scenario << " " << result.Describe();
    Report report;
    // A line in front of it may say why it is here.
    const std::size_t start = result.errors.find("TARVO_Crash_Report");
    ASSERT_NE(start, std::string::npos) << result.Describe();
    EXPECT_NO_THROW(report = ReadReport(result.errors.substr(start))) << test.scenario;
    EXPECT_EQ(FindFaults(report), std::vector<std::string>());
  }
}

// What is left of a report that does not fit is no report, and the line says so.
TEST(ReportDestination, LeavesNoTruncatedFile) {
  const SubjectRun run = RunSubject({"file-limit"});
  EXPECT_EQ(run.text, "");
  EXPECT_EQ(run.program.errors.find("crashhandler.module/source/legacycrashlog:"), 0U);
  EXPECT_NE(run.program.errors.find(" The report could not be written to "), std::string::npos);
}

// Said at the start, where the program can ask for it too; a fallback folder takes the report, made
// with its parents, also what the guard's pattern has names for.
TEST(ReportDestination, HasAFallback) {
  const TemporaryDirectory scratch;
  std::ofstream(scratch / "file") << "no folder";
  const std::string state = scratch / "state";
  const struct {
    std::vector<std::string> arguments;
    std::string place;  ///< the report's, where it is known
    bool isSaid;
  } kCases[] = {
      {{"--g_crashReportUrl=file/a.txt", "--g_crashReportFallback=viewer/crashes"},
       state + "/viewer/crashes/a.txt",
       true},
      {{"--g_crashReportUrl=good.txt", "--g_crashReportFallback=" + state + "/unused"},
       scratch / "good.txt",
       false},
      {{"--g_crashGuard=true", "--g_crashGuardReport=file/%%b.txt",
        "--g_crashReportFallback=" + state + "/guard"},
       state + "/guard/%b.txt",
       true},
      {{"--g_crashGuard=true", "--g_crashGuardReport=new/%e/c.txt"},
       scratch / "new/crash_subject/c.txt",
       false},
  };
  for (const auto& [arguments, place, isSaid] : kCases) {
    std::vector<std::string> command = {BuildDirectory() + "/tests/crash_subject", "null-write"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    ProgramOptions options;
    options.directory = scratch.Path();
    options.environment = {"XDG_STATE_HOME=" + state};
    const ProgramResult result = RunProgram(command, options);
    EXPECT_EQ(result.exitStatus, 1) << result.Describe();
    EXPECT_NO_THROW((void)ReadReport(ReadFile(place))) << place << result.Describe();
    const std::string said = ": Not a directory; it goes to \"" + place + "\".\n";
    EXPECT_EQ(result.errors.find(said) != std::string::npos, isSaid) << result.errors;
  }
  EXPECT_FALSE(std::filesystem::exists(state + "/unused"));
}

TEST(ReportDestination, StaysWhereTheProgramWasStarted) {
  const TemporaryDirectory scratch;
  ProgramOptions options;
  options.directory = scratch.Path();
  const ProgramResult result =
      RunProgram({BuildDirectory() + "/tests/crash_subject", "changed-directory",
                  "--g_crashReportUrl=relative_bugreport.txt"},
                 options);
  EXPECT_EQ(result.exitStatus, 1) << result.Describe();
  EXPECT_NO_THROW((void)ReadReport(ReadFile(scratch / "relative_bugreport.txt")));
}

// A pipe that nobody reads must not end the process by SIGPIPE.
TEST(ReportDestination, ClosedStandardErrorStillEndsWithStatusOne) {
  ProgramOptions options;
  options.closeStandardError = true;
  const ProgramResult result = RunSubject({"null-write"}, false, options).program;
  EXPECT_EQ(result.exitStatus, 1) << result.Describe();
}

// A program that has forked without exec, such as a daemon, has another process id than the one
// that the handler was installed in.
TEST(CrashInFork, ReportsTheChildsOwnThreads) {
  const SubjectRun run = RunSubject({"forked-child"});
  EXPECT_EQ(run.program.exitStatus, 0) << run.program.Describe();
  Report report;
  ASSERT_NO_THROW(report = ReadReport(run.text)) << run.text;
  EXPECT_EQ(report.threads.size(), 1U);
  EXPECT_FALSE(report.threads[0].frames.empty());
}

TEST(CallStack, IsCutToItsInnermostFrames) {
  const TemporaryDirectory scratch;
  const std::string file = scratch / "deep_bugreport.txt";
  const ProgramResult result = RunProgram({BuildDirectory() + "/bin/crashdemo", "--depth", "300",
                                           "--threads", "1", "--g_crashReportUrl=" + file});
  ASSERT_EQ(result.exitStatus, 1) << result.Describe();
  const Report report = ReadReport(ReadFile(file));
  ASSERT_NE(report.Named("victim"), nullptr);
  EXPECT_EQ(report.Named("victim")->frames.size(), 99U);
  EXPECT_TRUE(report.Named("victim")->Shows("CrashNullWrite"));
}

// Generated code belongs to no module; its frame says so, and is not taken for a wild call.
TEST(CallStack, CodeOutsideAllModulesIsAFrameOfItsOwn) {
  const SubjectRun run = RunSubject({"generated-code"});
  ASSERT_EQ(run.program.exitStatus, 1) << run.program.Describe();
  const Report report = ReadReport(run.text);
  std::string address = run.program.output;
  address.resize(address.find('\n'));
  EXPECT_TRUE(std::ranges::any_of(report.threads.at(0).frames, [&](const ReportFrame& frame) {
    return frame.text == "[" + address + "]";
  })) << run.text;
}

TEST(Debugger, KeepsTheCaptureOut) {
  const SubjectRun run = RunSubject({"traced"});
  EXPECT_EQ(run.program.errors, "SetCallback 0, SetSecondaryCallback 0, handler not installed\n");
}

}  // namespace
