// The resolve job and the service behind it, as a program and a host run them, with archives on
// disk and a symbolification that answers from a table.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/files.h"
#include "support/zip_builder.h"
#include "tarvo/crashhandler.h"
#include "tarvo/host/host.h"

namespace tarvo {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

Lines SortedLines(const fs::path& path) {
  std::istringstream text(ReadFile(path));
  Lines lines;
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  std::ranges::sort(lines);
  return lines;
}

Lines Sorted(Lines lines) {
  std::ranges::sort(lines);
  return lines;
}

/// Every path below `directory`, sorted.
Lines PathsBelow(const fs::path& directory) {
  Lines paths;
  for (const auto& entry : fs::recursive_directory_iterator(directory))
    paths.push_back(entry.path().lexically_relative(directory));
  return Sorted(paths);
}

/// A folder with reports, archives for two of their builds and the answers for these.
class ResolveJobTest : public testing::Test {
 protected:
  ResolveJobTest() {
    Write("answers",
          "application.app.dsym|0x10000c3d4|Renderer::Draw(int)|C:\\src\\renderer.cpp|31\n"
          "Pallado Pebble.app.dSYM|0x100001136|main|/Users/zoe/main.mm|7\n");
    Write("archives/r15/x3/builds/R15.6-4213_dsym.zip",
          ZipBuilder().Add({"Release/application.app.dsym/x", "symbols"}).Finish());
    Write("archives/r15/y/builds/R15.5-400_dsym.zip",
          ZipBuilder().Add({"Pebble/Pallado Pebble.app.dSYM/x", "symbols"}).Finish());
  }

  void Write(const fs::path& path, std::string_view content) {
    fs::create_directories((folder_ / path).parent_path());
    std::ofstream(folder_ / path, std::ios::binary) << content;
  }
  static std::string Report(const std::string& origin) {
    return ReadFile(fs::path(REPORTS) / (origin + "_bugreport.txt"));
  }
  [[nodiscard]] std::string Text(const std::string& path) const {
    return (folder_ / path).string();
  }
  [[nodiscard]] Url Place(const std::string& path) const { return Url::FromSystemPath(Text(path)); }

  /// The command line of a run of the job, its output in the files `name`.out and `name`.err.
  [[nodiscard]] std::string Command(const std::string& name) const {
    return "timeout 50 " TARVO_PROGRAM
           " run net.tarvo.execution.crashlogresolve"
           " --module " CRASHHANDLER_MODULE " --module " RECORDER_MODULE " --g_recorderAnswers=" +
           Text("answers") + " --g_crashlogDirectory=file://" + Text("reports") +
           " --g_symbolArchiveDirectory=" + Text("archives") +
           " --g_symbolTemporaryDirectory=" + Text("cache") + " >" + Text(name + ".out") + " 2>" +
           Text(name + ".err");
  }
  /// The exit status.
  static int Shell(const std::string& command) {
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  TemporaryDirectory folder_;
};

TEST_F(ResolveJobTest, ResolvesATreeOfReportsOfAllOrigins) {
  Write("reports/tarvo_bugreport.txt", Report("tarvo"));
  Write("reports/linux_bugreport.txt", Report("linux"));
  Write("reports/a/b/c/WINDOWS_BugReport.TXT", Report("windows"));
  Write("reports/a/macos_bugreport.txt", Report("macos"));
  Write("reports/bad_bugreport.txt", "Some other report {}");
  const Lines passedOver = {"reports/a/windows_bugreport.txt.bak", "reports/bugreport.txt",
                            "reports/.hidden/macos_bugreport.txt", "reports/.macos_bugreport.txt",
                            "elsewhere/macos_bugreport.txt"};
  for (const std::string& path : passedOver) Write(path, Report("macos"));
  fs::create_directory_symlink(folder_ / "elsewhere", folder_ / "reports/link");
  Lines paths = PathsBelow(folder_ / "reports");

  ASSERT_EQ(Shell(Command("first")), 0) << ReadFile(folder_ / "first.err");

  const fs::path resolved(RESOLVED);
  const fs::path unresolved(REPORTS);
  const std::tuple<const char*, fs::path, const char*> outcomes[] = {
      {"a/b/c/WINDOWS_BugReport", resolved, "windows_bugreport"},
      {"a/macos_bugreport", resolved, "macos_bugreport"},
      {"linux_bugreport", unresolved, "linux_bugreport"},
      {"tarvo_bugreport", unresolved, "tarvo_bugreport"},
  };
  for (const auto& [report, folder, expected] : outcomes) {
    const std::string written = Text(std::string("reports/") + report);
    EXPECT_EQ(ReadFile(written + ".resolved.json"),
              ReadFile(folder / (std::string(expected) + ".json")));
    EXPECT_EQ(ReadFile(written + ".source"),
              ReadFile(folder / (std::string(expected) + ".source")));
    paths.push_back(std::string(report) + ".resolved.json");
    paths.push_back(std::string(report) + ".source");
  }
  EXPECT_EQ(PathsBelow(folder_ / "reports"), Sorted(paths));
  const Lines said = {
      "load " + Text("cache/R15.6-4213/Release/application.app.dsym") + " x86_64",
      "resolve 0x10000c3d4",
      "? (0x180001000)",
      "load " + Text("cache/R15.5-400/Pebble/Pallado Pebble.app.dSYM") + " x86_64",
      "resolve 0x100001136",
      "main + 0x11 (0x401136)",
  };
  EXPECT_EQ(SortedLines(folder_ / "first.out"), Sorted(said));
  const Lines errors = SortedLines(folder_ / "first.err");
  ASSERT_EQ(errors.size(), 2u);
  EXPECT_TRUE(errors[0].ends_with(": Reports: 5 found, 4 resolved, 1 failed, 0 skipped"));
  EXPECT_TRUE(errors[1].starts_with("crashhandler.module/source/main")) << errors[1];
  EXPECT_TRUE(errors[1].ends_with(": Wrong type of report: Some (" +
                                  Text("reports/bad_bugreport.txt") + ")"))
      << errors[1];
  EXPECT_EQ(PathsBelow(folder_ / "cache").size(), 8u);
}

TEST_F(ResolveJobTest, TwoProcessesAtOnceGiveWhatOneGives) {
  for (int i = 0; i < 20; ++i)
    Write("reports/" + std::to_string(i) + "_bugreport.txt", Report("windows"));
  Write("archives/R15.6-4213_dsym.zip",
        ZipBuilder()
            .Add({"application.app.dsym/large", std::string(20 << 20, 'x')})
            .Add({"application.app.dsym/x", "symbols"})
            .Finish());
  ASSERT_EQ(Shell("(" + Command("first") + "; echo $? >>" + Text("ends") + ") & (" +
                  Command("second") + "; echo $? >>" + Text("ends") + ") & wait"),
            0);
  EXPECT_EQ(ReadFile(folder_ / "ends"), "0\n0\n");
  const std::string expected = ReadFile(fs::path(RESOLVED) / "windows_bugreport.json");
  for (int i = 0; i < 20; ++i)
    EXPECT_EQ(ReadFile(folder_ / ("reports/" + std::to_string(i) + "_bugreport.resolved.json")),
              expected);
  EXPECT_EQ(SortedLines(folder_ / "first.out"), SortedLines(folder_ / "second.out"));
  EXPECT_EQ(PathsBelow(folder_ / "cache"),
            (Lines{"R15.6-4213", "R15.6-4213/application.app.dsym",
                   "R15.6-4213/application.app.dsym/large", "R15.6-4213/application.app.dsym/x"}));
}

/// The service and the job in this process.
class ResolveServiceTest : public ResolveJobTest {
 protected:
  void Start(Lines arguments) {
    arguments.push_back("--g_recorderAnswers=" + Text("answers"));
    auto host = Host::Start(
        {.arguments = std::move(arguments), .modules = {CRASHHANDLER_MODULE, RECORDER_MODULE}});
    ASSERT_TRUE(host) << host.GetError().Text().View();
    host_ = *std::move(host);
    handler_ = *Bind<CrashHandler>(host_->Services());
  }
  void TearDown() override {
    handler_ = nullptr;
    host_.reset();
  }
  std::string Resolve(const std::string& report, const Url& archives, const Url& cache) {
    const Result<void> resolved = handler_->ResolveBugReport(Place(report), archives, cache);
    if (resolved) return "";
    EXPECT_EQ(resolved.GetError().Where().path, "crashhandler.module/source/main");
    return resolved.GetError().Text().ToStdString();
  }

  std::unique_ptr<Host> host_;
  Ref<CrashHandler> handler_;
};

TEST_F(ResolveServiceTest, DirectoriesThatNobodyGivesAreNamed) {
  const std::string noArchives = "g_symbolArchiveDirectory is not defined.";
  const std::string noCache = "g_symbolTemporaryDirectory is not defined.";
  Start({"--g_crashlogDirectory=" + Text("reports")});
  Write("reports/linux_bugreport.txt", Report("linux"));
  EXPECT_EQ(Resolve("no report", {}, {}), noArchives);
  EXPECT_EQ(Resolve("no report", {}, Place("cache")), noArchives);
  EXPECT_EQ(Resolve("no report", Place("archives"), {}), noCache);
  testing::internal::CaptureStderr();
  EXPECT_TRUE(host_->RunExecutionJob("net.tarvo.execution.crashlogresolve"));
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_NE(said.find(": " + noArchives + " (" + Text("reports/linux_bugreport.txt") + ")\n"),
            std::string::npos)
      << said;
  EXPECT_EQ(PathsBelow(folder_ / "reports"), Lines{"linux_bugreport.txt"});
  EXPECT_EQ(Resolve("reports/linux_bugreport.txt", Place("archives"), Place("cache")), "");
}

TEST_F(ResolveServiceTest, ASourceGivesOnlyTheDocument) {
  Start({"--g_symbolArchiveDirectory=" + Text("archives"),
         "--g_symbolTemporaryDirectory=" + Text("cache")});
  Write("reports/r.source", Report("linux"));
  EXPECT_EQ(Resolve("reports/r.source", {}, {}), "");
  EXPECT_EQ(PathsBelow(folder_ / "reports"), (Lines{"r.resolved.json", "r.source"}));
  EXPECT_EQ(ReadFile(folder_ / "reports/r.source"), Report("linux"));
}

TEST_F(ResolveServiceTest, OnlyTheTopDirectorysErrorIsTheJobs) {
  Start({"--g_crashlogDirectory=" + Text("missing")});
  const Result<void> run = host_->RunExecutionJob("net.tarvo.execution.crashlogresolve");
  ASSERT_FALSE(run);
  EXPECT_EQ(run.GetError().Text().ToStdString(),
            "Could not list \"" + Text("missing") + "\": No such file or directory");
  TearDown();
  Start({});
  EXPECT_TRUE(host_->RunExecutionJob("net.tarvo.execution.crashlogresolve"));
}

/// A crash handler whose memory is at its end.
class FullHandler final : public Counted<CrashHandler> {
 public:
  bool SetCallback(CrashCallback) override { return false; }
  bool SetSecondaryCallback(CrashCallback) override { return false; }
  Result<void> SetCrashDataDirectory(const Url&) override { return {}; }
  void DisplayCrashDialog(const String&, const String&) override {}
  Result<void> GetProcessModules(std::vector<LoadedModule>&) override { return {}; }
  Result<void> ResolveBugReport(const Url&, const Url&, const Url&) override {
    throw std::bad_alloc();
  }
  Ref<Observable> ObservableCrashDataDirectory() override { return nullptr; }
};

/// Each line of the job's diagnostics without its line in the source, sorted.
Lines RunTheJob(Host& host) {
  testing::internal::CaptureStderr();
  EXPECT_TRUE(host.RunExecutionJob("net.tarvo.execution.crashlogresolve"));
  std::istringstream said(testing::internal::GetCapturedStderr());
  Lines lines;
  std::set<std::string> places;
  for (std::string line; std::getline(said, line);) {
    const std::size_t text = line.find(": ");
    places.insert(line.substr(0, text));
    lines.push_back(line.substr(text + 2));
  }
  EXPECT_EQ(places.size(), std::set<std::string>(lines.begin(), lines.end()).size())
      << "each kind of line says where it comes from";
  return Sorted(lines);
}

TEST_F(ResolveServiceTest, WhatGoesWrongInTheWalkIsSaidAndEndsNothing) {
  Write("reports/a_bugreport.txt", Report("linux"));
  Write("reports/large_bugreport.txt", "TARVO_Crash_Report\n{\n");
  fs::resize_file(folder_ / "reports/large_bugreport.txt", (std::uintmax_t{1} << 30) + 1);
  // A directory whose path is too long for the system cannot be listed.
  const std::string name(250, 'd');
  std::string deep = Text("reports");
  const int before = open(".", O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(chdir(deep.c_str()), 0);
  for (; deep.size() < 4096; deep += "/" + name) {
    ASSERT_EQ(mkdir(name.c_str(), 0777), 0);
    ASSERT_EQ(chdir(name.c_str()), 0);
  }
  ASSERT_EQ(fchdir(before), 0);
  close(before);
  Start({"--g_crashlogDirectory=" + Text("reports"),
         "--g_symbolArchiveDirectory=" + Text("archives"),
         "--g_symbolTemporaryDirectory=" + Text("cache")});
  const std::string large = Text("reports/large_bugreport.txt");
  EXPECT_EQ(RunTheJob(*host_),
            Sorted({"Could not list \"" + deep + "\": File name too long",
                    "Could not read \"" + large + "\": it holds more than 1073741824 bytes (" +
                        large + ")",
                    "Reports: 2 found, 1 resolved, 1 failed, 0 skipped"}));
  EXPECT_TRUE(fs::exists(folder_ / "reports/a_bugreport.resolved.json"));
}

TEST_F(ResolveServiceTest, AMistypedDirectoryIsSaid) {
  Write("reports/a_bugreport.txt", Report("linux"));
  for (const std::string archives : {"my:archives", "c:\\archives", "http://host/archives"}) {
    Start({"--g_crashlogDirectory=" + Text("reports"), "--g_symbolArchiveDirectory=" + archives,
           "--g_symbolTemporaryDirectory=" + Text("cache")});
    const Lines said = RunTheJob(*host_);
    ASSERT_EQ(said.size(), 2U);
    EXPECT_EQ(said[0], "Reports: 1 found, 0 resolved, 0 failed, 1 skipped");
    EXPECT_TRUE(said[1].starts_with("Skipped, as g_symbolArchiveDirectory cannot be used: "));
    EXPECT_NE(said[1].find(archives), std::string::npos) << said[1];
    EXPECT_EQ(PathsBelow(folder_ / "reports"), Lines{"a_bugreport.txt"});
    TearDown();
  }
}

TEST_F(ResolveServiceTest, MemoryThatRunsOutDoesNotEndTheWalk) {
  Write("reports/a_bugreport.txt", Report("linux"));
  Write("reports/b_bugreport.txt", Report("linux"));
  auto host = Host::Start({
      .arguments = {"--g_crashlogDirectory=" + Text("reports")},
      .modules = {CRASHHANDLER_MODULE, RECORDER_MODULE},
      .components = {{.interfaceId = CrashHandler::kInterfaceId,
                      .className = "FullHandler",
                      .create = []() -> Ref<Object> { return Make<FullHandler>(); }}},
  });
  ASSERT_TRUE(host) << host.GetError().Text().View();
  const std::string line = "There was no memory for a report or directory; the walk goes on.";
  EXPECT_EQ(RunTheJob(**host),
            (Lines{"Reports: 2 found, 0 resolved, 0 failed, 2 skipped", line, line}));
}

TEST_F(ResolveServiceTest, SeveralThreadsResolveReportsOfOneBuild) {
  Start({"--g_crashlogResolveDiagnosticOutput=0"});
  const std::string expected = ReadFile(fs::path(RESOLVED) / "windows_bugreport.json");
  constexpr int kThreads = 8;
  for (int i = 0; i < kThreads; ++i)
    Write("reports/" + std::to_string(i) + "_bugreport.txt", Report("windows"));
  testing::internal::CaptureStdout();
  std::vector<std::jthread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([this, i] {
      EXPECT_EQ(Resolve("reports/" + std::to_string(i) + "_bugreport.txt", Place("archives"),
                        Place("cache")),
                "");
    });
  }
  threads.clear();
  testing::internal::GetCapturedStdout();
  for (int i = 0; i < kThreads; ++i)
    EXPECT_EQ(ReadFile(folder_ / ("reports/" + std::to_string(i) + "_bugreport.resolved.json")),
              expected);
}

}  // namespace
}  // namespace tarvo
