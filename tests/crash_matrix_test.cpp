// Every kind of crash that the demo knows, in the main thread and in a worker: the process ends
// with status 1 within its time, and leaves one complete report.

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <ostream>
#include <regex>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "support/files.h"
#include "support/program.h"
#include "support/report_layout.h"

namespace {

constexpr int kThreads = 12;

struct Kind {
  const char* name;
  const char* signal;  ///< the report's ExceptionText
  const char* number;  ///< and ExceptionNumber
  /// A function in the crashing thread's stack: the one that crashes or, for a call that leads
  /// nowhere, the one that makes it.
  const char* function;
};

void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

constexpr Kind kKinds[] = {
    {"null-write", "SIGSEGV", "0x0000000B", "CrashNullWrite"},
    {"null-call", "SIGSEGV", "0x0000000B", "CrashNullCall"},
    {"wild-call", "SIGSEGV", "0x0000000B", "CrashWildCall"},
    {"data-call", "SIGSEGV", "0x0000000B", "CrashDataCall"},
    {"illegal", "SIGILL", "0x00000004", "CrashIllegal"},
    {"bus", "SIGBUS", "0x00000007", "CrashBus"},
    {"divide", "SIGFPE", "0x00000008", "CrashDivide"},
    {"trap", "SIGTRAP", "0x00000005", "CrashTrap"},
    {"sys", "SIGSYS", "0x0000001F", "CrashSys"},
    {"in-malloc", "SIGSEGV", "0x0000000B", "CrashInMalloc"},
    {"busy-malloc", "SIGSEGV", "0x0000000B", "CrashNullWrite"},
    {"in-constructor", "SIGSEGV", "0x0000000B", "CrashInConstructor"},
    {"blocked-thread", "SIGSEGV", "0x0000000B", "CrashNullWrite"},
    {"hangup", "SIGSEGV", "0x0000000B", "CrashAfterHangup"},
    {"tracing-refused", "SIGSEGV", "0x0000000B", "CrashWithoutTracing"},
};

struct Crash {
  ProgramResult program;
  std::string text;
  Report report;
};

Crash RunDemo(const std::string& kind, const std::string& place, int threads = kThreads,
              bool guard = true) {
  const TemporaryDirectory scratch;
  const std::string file = scratch / "demo_bugreport.txt";
  Crash crash;
  crash.program = RunProgram({BuildDirectory() + "/bin/crashdemo", "--kind", kind, "--in", place,
                              "--threads", std::to_string(threads), "--g_crashReportUrl=" + file,
                              guard ? "--g_crashGuard=true" : "--g_crashGuard=false"});
  crash.text = ReadFile(file);
  EXPECT_EQ(crash.program.exitStatus, 1) << crash.program.Describe();
  EXPECT_NO_THROW(crash.report = ReadReport(crash.text)) << crash.program.Describe();
  EXPECT_EQ(FindFaults(crash.report), std::vector<std::string>()) << crash.text;
  return crash;
}

class CrashMatrix : public testing::TestWithParam<std::tuple<Kind, const char*, bool>> {};

TEST_P(CrashMatrix, LeavesOneCompleteReport) {
  const auto& [kind, place, guard] = GetParam();
  const std::string_view name = kind.name;
  if (kSanitized && name == "in-malloc") GTEST_SKIP() << "the sanitizer has its own malloc";
  if (kSanitized && name == "in-constructor") GTEST_SKIP() << kNoDlopen;
  const std::string_view where = place;
  const Report report = RunDemo(kind.name, place, kThreads, guard).report;
  EXPECT_EQ(report.exception.at("ExceptionNumber"), kind.number);
  EXPECT_EQ(report.exception.at("ExceptionText"), kind.signal);

  const ReportThread* crashed = report.Named(where == "main" ? "crashdemo" : "victim");
  ASSERT_NE(crashed, nullptr);
  EXPECT_TRUE(crashed->Shows(kind.function)) << kind.function;
  // The stack goes on behind the fault, to where the thread began.
  EXPECT_TRUE(crashed->Shows("_ZN5scene6Update"));
  EXPECT_TRUE(crashed->Shows(where == "main" ? "_start" : "_ZN5scene6Update"));

  const std::size_t workers = kThreads + (where == "main" ? 0 : 1);
  EXPECT_EQ(report.threads.size(), workers + 1);
  for (const ReportThread& thread : report.threads) EXPECT_FALSE(thread.frames.empty());
}

std::string NameOfCase(const testing::TestParamInfo<CrashMatrix::ParamType>& info) {
  std::string name = std::string(std::get<0>(info.param).name) + "_" + std::get<1>(info.param) +
                     (std::get<2>(info.param) ? "_guarded" : "");
  std::ranges::replace(name, '-', '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Kinds, CrashMatrix,
                         testing::Combine(testing::ValuesIn(kKinds),
                                          testing::Values("main", "worker"), testing::Bool()),
                         NameOfCase);

using Pairs = std::vector<std::pair<std::string, std::string>>;

/// Each module with a build id in its file has it under its base address.
void CheckBuildIds(const Report& report, const Pairs& facts) {
  for (const ReportModule& module : report.modules) {
    if (!module.path.starts_with("/")) continue;
    const ProgramResult notes = RunProgram({"/usr/bin/readelf", "-n", module.path});
    std::smatch match;
    if (!std::regex_search(notes.output, match, std::regex("Build ID: ([0-9a-f]+)"))) continue;
    std::ostringstream name;
    name << "BuildId_0x" << std::hex << module.base;
    const auto found = std::ranges::find(facts, name.str(), &Pairs::value_type::first);
    ASSERT_NE(found, facts.end()) << module.path;
    EXPECT_EQ(found->second, match[1]) << module.path;
  }
}

// A report of a known process, line by line: what no single check above looks at.
TEST(CrashDemo, ThreadsHaveTheirVariablesAndModulesTheirOrder) {
  const Crash crash = RunDemo("null-write", "worker", 2, false);
  std::vector<Pairs> variables;
  for (const ReportThread& thread : crash.report.threads) variables.push_back(thread.variables);
  // Behind the variables that the program has set stands what the capture knows of the crash.
  ASSERT_GT(variables.back().size(), 5U);
  EXPECT_TRUE(std::regex_match(variables.back()[3].second,
                               std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)")));
  const Pairs facts(variables.back().begin() + 3, variables.back().end());
  EXPECT_EQ(facts[0].first, "CrashTime");
  EXPECT_EQ(facts[1], std::pair(std::string("ProgramFile"), BuildDirectory() + "/bin/crashdemo"));
  CheckBuildIds(crash.report, facts);
  variables.back().resize(3);
  const std::vector<Pairs> expected = {
      {{"ThreadName", "crashdemo"}, {"Document", "city.scene"}},
      {{"ThreadName", "render-0"}, {"Task", "drawing frame 2204"}, {"Document", "city.scene"}},
      {{"ThreadName", "loader-1"}, {"Task", "reading city.scene"}, {"Document", "city.scene"}},
      {{"ThreadName", "victim"}, {"Task", "running the fault"}, {"Document", "city.scene"}}};
  EXPECT_EQ(variables, expected);

  // The loader's own list of what it loads before the program starts, in its order.
  ProgramOptions listing;
  listing.environment = {"LD_TRACE_LOADED_OBJECTS=1"};
  const ProgramResult listed = RunProgram({BuildDirectory() + "/bin/crashdemo"}, listing);
  std::size_t at = 1;
  std::size_t lineStart = 0;
  for (std::size_t lineEnd = 0;
       (lineEnd = listed.output.find('\n', lineStart)) != std::string::npos;
       lineStart = lineEnd + 1, ++at) {
    std::string name = listed.output.substr(lineStart + 1, lineEnd - lineStart - 1);
    name.resize(name.find(' '));
    ASSERT_LT(at, crash.report.modules.size());
    // The program interpreter stands last in the listing, by its path.
    if (name.starts_with("/")) break;
    EXPECT_TRUE(crash.report.modules[at].path.ends_with(name))
        << name << " expected, found " << crash.report.modules[at].path;
  }
  EXPECT_GT(at, 4U);
  const auto handler =
      std::ranges::find(crash.report.modules, "crashhandler.so", &ReportModule::name);
  ASSERT_NE(handler, crash.report.modules.end());
  // Nobody has named the build: it is called by the program's build id.
  const auto& ofVictim = crash.report.Named("victim")->variables;
  const auto id = std::ranges::find_if(
      ofVictim, [](const auto& variable) { return variable.first.starts_with("BuildId_"); });
  ASSERT_NE(id, ofVictim.end());
  EXPECT_EQ(handler->build, id->second);
}

// Two threads crash at the same moment: one of them captures, the other waits with its stack in the
// report.
TEST(CrashDemo, TwoCrashesAtOnceGiveOneReport) {
  for (int round = 0; round < 20; ++round) {
    const Crash crash = RunDemo("double", round % 2 == 0 ? "main" : "worker", 3);
    EXPECT_EQ(crash.text.find("TARVO_Crash_Report"), crash.text.rfind("TARVO_Crash_Report"));
    const auto shows = [&](const char* function) {
      return std::ranges::any_of(
          crash.report.threads, [&](const ReportThread& thread) { return thread.Shows(function); });
    };
    // The other one may have been asked for its stack just before its own fault.
    EXPECT_TRUE(shows(crash.report.exception.at("ExceptionText") == "SIGFPE" ? "CrashDivide"
                                                                             : "CrashNullWrite"))
        << crash.text;
    EXPECT_TRUE(shows("CrashDouble")) << crash.text;
    if (HasFailure()) return;
  }
}

TEST(CrashDemo, RefusedTracingIsDiagnosedForEachThread) {
  const Crash crash = RunDemo("tracing-refused", "main", 1);
  const std::string place = "crashhandler.module/source/linux/linux_crashhandler:";
  std::size_t lines = 0;
  for (const char* step : {"Ptrace(PTRACE_GETREGS, ...) returned error:",
                           "ptrace(PTRACE_GETFPREGS,...) returned error:", "detach error: "})
    for (std::size_t at = 0; (at = crash.program.errors.find(step, at)) != std::string::npos; ++at)
      ++lines;
  EXPECT_EQ(lines, 3 * crash.report.threads.size()) << crash.program.errors;
  EXPECT_NE(crash.program.errors.find(place), std::string::npos);
  EXPECT_NE(crash.program.output.find("error in waitpid: WIFEXITED\n"), std::string::npos);
  for (const ReportThread& thread : crash.report.threads)
    for (const auto& [name, value] : thread.registers) EXPECT_EQ(value, "0000000000000000") << name;
}

// The control of all that is bounded by time here: without the handler the same programs die of
// their signal, so that a status of 1 is the capture's work.
TEST(CrashDemo, WithoutTheModuleTheSignalEndsTheProgram) {
  if (kSanitized) GTEST_SKIP() << "the sanitizer's own handler ends the program with a status";
  const TemporaryDirectory scratch;
  ProgramOptions noModule;
  noModule.directory = scratch.Path();
  const ProgramResult result =
      RunProgram({BuildDirectory() + "/tests/crash_subject", "--no-host", "null-write"}, noModule);
  EXPECT_EQ(result.signal, SIGSEGV) << result.Describe();
}

}  // namespace
