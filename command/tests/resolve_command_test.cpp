// Runs `tarvo resolve` over real crashes of the demo with real symbols, and over reports of all
// origins with a symbolification that answers from a table.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/program.h"
#include "support/zip_builder.h"

namespace tarvo {
namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

class ResolveCommandTest : public testing::Test {
 protected:
  void Write(const fs::path& path, std::string_view content) {
    fs::create_directories((folder_ / path).parent_path());
    std::ofstream(folder_ / path, std::ios::binary) << content;
  }
  [[nodiscard]] std::string Text(const std::string& path) const {
    return (folder_ / path).string();
  }

  /// In the test's folder, within a time that no run may take.
  ProgramResult Run(Texts line, const Texts& environment = {}) {
    const Texts start = {"/bin/sh", "-c", "cd \"$0\" && exec timeout 60 \"$@\"", Text(".")};
    line.insert(line.begin(), start.begin(), start.end());
    return RunProgram(line, {.environment = environment});
  }
  ProgramResult Tarvo(Texts arguments) {
    arguments.insert(arguments.begin(), TARVO_PROGRAM);
    return Run(arguments);
  }

  TemporaryDirectory folder_;
};

// --- Real crashes --------------------------------------------------------------------------------

/// The line of the demo's source that holds `statement`.
std::string LineOf(const std::string& statement) {
  std::istringstream source(ReadFile(FAULTS_SOURCE));
  int number = 0;
  for (std::string line; std::getline(source, line);) {
    ++number;
    if (line.find(statement) != std::string::npos) return std::to_string(number);
  }
  return "no line with " + statement;
}

/// Every resolved frame of a document, as "FUNCTION FILE:LINE" with the file's own name.
Texts ResolvedFrames(const fs::path& document) {
  static const std::regex kFrame(
      R"re("FunctionName": "(.*)",\s*"Address": \d+,\s*(?:"Crashed": true,\s*)?"SourceFileName": ".*?([^/"]*)",\s*"SourceLine": (\d+))re");
  const std::string text = ReadFile(document);
  Texts frames;
  for (std::sregex_iterator at(text.begin(), text.end(), kFrame), end; at != end; ++at)
    frames.push_back((*at)[1].str() + " " + (*at)[2].str() + ":" + (*at)[3].str());
  return frames;
}

/// What the address sanitizer would handle itself is the crash handler's.
const Texts kCrashingEnvironment = {
    "ASAN_OPTIONS=handle_segv=0:handle_sigbus=0:handle_sigill=0:handle_sigfpe=0:"
    "handle_sigtrap=0:handle_abort=0",
    "TARVO_g_UnitTests_Id=2209-demo"};

/// A sanitizer's allocator and dlopen stand in the way of these.
#ifdef TARVO_SANITIZED
const std::set<std::string> kLeftOut = {"in-malloc", "heap-corruption", "in-constructor"};
#else
const std::set<std::string> kLeftOut = {};
#endif

struct CrashLine {
  const char* kind;
  const char* function;
  const char* statement;
  const char* otherFunction = nullptr;  ///< of two threads that crash at once
  const char* otherStatement = nullptr;
};

TEST_F(ResolveCommandTest, EveryKindOfCrashResolvesToItsLine) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the thread sanitizer delays signals, and a computing thread is never captured";
#endif
  if (!fs::exists(MODULES "/symbolreader.so")) GTEST_SKIP() << "built without the symbol reader";
  const CrashLine crashes[] = {
      {"null-write", "CrashNullWrite", "*nowhere = 1;"},
      {"null-call", "(anonymous namespace)::Call(void (*)())", "  target();"},
      {"wild-call", "CrashWildCall", "0x2AAA'DEAD'B000"},
      {"data-call", "CrashDataCall", "&g_table"},
      {"illegal", "CrashIllegal", "ud2"},
      {"bus", "CrashBus", "volatile int*>(map)"},
      {"divide", "CrashDivide", "dividend / zero"},
      {"trap", "CrashTrap", "int3"},
      {"sys", "CrashSys", "syscall(SYS_acct"},
      {"double", "CrashNullWrite", "*nowhere = 1;", "CrashDivide", "dividend / zero"},
      {"in-malloc", "CrashInMalloc", "std::malloc(2 * kLarge)"},
      {"busy-malloc", "CrashNullWrite", "*nowhere = 1;"},
      {"in-constructor", "CrashInConstructor", "dlopen("},
      {"blocked-thread", "CrashNullWrite", "*nowhere = 1;"},
      {"hangup", "CrashNullWrite", "*nowhere = 1;"},
      {"tracing-refused", "CrashNullWrite", "*nowhere = 1;"},
      {"stack-overflow", "CrashStackOverflow", "CrashStackOverflow(depth + 1)"},
      {"abort", "CrashAbort", "Call(std::abort)"},
      {"uncaught-exception", "CrashUncaught", "throw std::out_of_range"},
      {"heap-corruption", "CrashHeapCorruption", "std::free(block)"},
  };
  fs::create_directories(folder_ / "reports");
  for (const CrashLine& crash : crashes) {
    const char* kind = crash.kind;
    if (kLeftOut.contains(kind)) continue;
    const auto end = Run({CRASHDEMO_PROGRAM, "--threads", "2", "--kind", kind,
                          "--g_crashReportUrl=reports/" + std::string(kind) + "_bugreport.txt"},
                         kCrashingEnvironment);
    ASSERT_EQ(end.exitStatus, 1) << kind << end.errors;
  }
  const auto packed = Tarvo(
      {"pack", "--build", "2209-demo", "--archives", "archives", CRASHDEMO_PROGRAM, SCENE_LIBRARY});
  ASSERT_EQ(packed.exitStatus, 0) << packed.errors;
  const auto end = Tarvo({"resolve", "reports", "--archives", "archives", "--cache", "cache",
                          "--quiet", "--g_symbolIndexDirectory=" + Text("index")});
  EXPECT_EQ(end.exitStatus, 0);
  EXPECT_EQ(end.output + end.errors, "");
  for (const auto& [kind, function, statement, otherFunction, otherStatement] : crashes) {
    if (kLeftOut.contains(kind)) continue;
    const Texts frames =
        ResolvedFrames(folder_ / "reports" / (std::string(kind) + "_bugreport.resolved.json"));
    const auto isThere = [&](const char* name, const char* text) {
      return name != nullptr &&
             std::ranges::find(frames, std::string(name) + " faults.cpp:" + LineOf(text)) !=
                 frames.end();
    };
    EXPECT_TRUE(isThere(function, statement) || isThere(otherFunction, otherStatement))
        << kind << ": " << testing::PrintToString(frames);
    const auto isWork = [](const std::string& frame) {
      return frame.find("scene::Update(int, void (*)(void*), void*) scene.cpp:") == 0;
    };
    EXPECT_GE(std::ranges::count_if(frames, isWork), 3) << kind;
  }
}

// --- Reports of all origins ----------------------------------------------------------------------

/// A tree of reports, with archives for two of their builds and answers for these.
class ResolveOriginsTest : public ResolveCommandTest {
 protected:
  ResolveOriginsTest() {
    Write("answers",
          "application.app.dsym|0x10000c3d4|Renderer::Draw(int)|C:\\src\\renderer.cpp|31\n"
          "Pallado Pebble.app.dSYM|0x100001136|main|/Users/zoe/main.mm|7\n");
    Write("archives/r15/x3/builds/R15.6-4213_dsym.zip",
          ZipBuilder().Add({"Release/application.app.dsym/x", "symbols"}).Finish());
    Write("archives/r15/y/builds/R15.5-400_dsym.zip",
          ZipBuilder().Add({"Pebble/Pallado Pebble.app.dSYM/x", "symbols"}).Finish());
    for (const std::string& origin : kOrigins)
      Write("reports/" + origin + "_bugreport.txt",
            ReadFile(fs::path(REPORTS) / (origin + "_bugreport.txt")));
  }

  ProgramResult WithRecorder(Texts arguments) {
    const Texts more = {"--module", MODULES "/crashhandler.so", "--module", RECORDER_MODULE,
                        "--g_recorderAnswers=" + Text("answers")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Tarvo(arguments);
  }
  ProgramResult Resolve(Texts arguments) {
    const Texts start = {"resolve",         "--archives", "archives",
                         "--archives-only", "--cache",    "cache"};
    arguments.insert(arguments.begin(), start.begin(), start.end());
    return WithRecorder(arguments);
  }
  /// Contents by name.
  std::map<std::string, std::string> Files(const std::string& directory) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::directory_iterator(folder_ / directory))
      files[entry.path().filename()] = ReadFile(entry.path());
    return files;
  }

  const Texts kOrigins = {"linux", "macos", "tarvo", "windows"};
};

/// Without the lines that the recorder writes.
std::string WithoutCalls(const std::string& output) {
  static const std::regex kCall("(load|resolve) .*\n");
  return std::regex_replace(output, kCall, "");
}

/// The documents of `tarvo resolve` begin with this, the job's do not.
const std::regex kOutcome(R"re(^\{\n  "Outcome": \{\n(.*\n)*?  \},)re");
std::string WithoutOutcome(const std::string& document) {
  return std::regex_replace(document, kOutcome, "{");
}

/// The same of frames.
const std::regex kAddressText(",\\s*\"AddressText\": \"0x[0-9a-f]+\"");
/// A thread's or a frame's, behind the members that each of them has.
const std::regex kMark(",\\s*\"Crashed\": true");

const std::string kSpelledScene = "Spelled_Scene_20File";

TEST_F(ResolveOriginsTest, WritesWhatTheJobWritesForNormalizedReports) {
  for (const std::string& origin : kOrigins) {
    const std::string name = origin + "_bugreport.txt";
    Write("job/" + name, Tarvo({"normalize", "reports/" + name}).output);
  }
  const auto job =
      WithRecorder({"run", "net.tarvo.execution.crashlogresolve", "--g_crashlogDirectory=job",
                    "--g_symbolArchiveDirectory=archives", "--g_symbolTemporaryDirectory=cache"});
  ASSERT_EQ(job.exitStatus, 0) << job.errors;
  // What the job reads is spelled where no line could carry it; resolving puts the true name back.
  auto written = Files("job");
  for (auto& [name, content] : written)
    for (std::size_t at = 0; (at = content.find(kSpelledScene)) != std::string::npos;)
      content.replace(at, kSpelledScene.size(), "Scene File");
  const auto originals = Files("reports");
  for (const char* jobs : {"1", "4"}) {
    ASSERT_EQ(Resolve({"reports", "--jobs", jobs}).exitStatus, 0);
    auto expected = written;
    for (const auto& [name, content] : originals) expected[name] = content;
    auto resolved = Files("reports");
    std::string marks;
    for (auto& [name, content] : resolved) {
      const std::sregex_iterator found(content.begin(), content.end(), kMark);
      marks += std::to_string(std::distance(found, std::sregex_iterator()));
      content = std::regex_replace(WithoutOutcome(content), kMark, "");
      content = std::regex_replace(content, kAddressText, "");
    }
    EXPECT_EQ(resolved, expected);
    EXPECT_EQ(marks, "200000200200") << "files by name; the report of macOS tells of no exception";
    for (const auto& entry : fs::directory_iterator(folder_ / "reports"))
      if (entry.path().extension() != ".txt") fs::remove(entry.path());
  }
}

// In a file of results each report has its document as one line, in the order of the list whatever
// the order of builds, and one that failed has its reason.
TEST_F(ResolveOriginsTest, ResultsAreOneLineForEachReport) {
  Write("reports/bad_bugreport.txt", "Some other report {}");
  Write("reports/cut_bugreport.txt.gz", "\x1f\x8b\x08");
  Write("reports/cut_bugreport.txt", "");  // nothing is written for it to have the name of
  const auto hash = [&](const std::string& report) {
    return Run({"sh", "-c", "sha256sum < " + report}).output.substr(0, 64);
  };
  ASSERT_EQ(Resolve({"reports", "--jobs", "2"}).exitStatus, 1);
  auto files = Files("reports");
  const auto end = Resolve({"reports", "--results", "results", "--jobs", "2"});
  EXPECT_EQ(end.exitStatus, 1) << end.errors;
  std::istringstream lines(ReadFile(folder_ / "results"));
  static const std::regex kTime(R"("Time":"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ")");
  const std::pair<std::string, std::string> failures[] = {
      {R"(bad_bugreport.txt","Size":20)", "Wrong type of report: Some"},
      {R"(cut_bugreport.txt","Size":0)", "The file is empty."},
      {R"(cut_bugreport.txt.gz","Size":3)",
       R"(Could not unpack \"reports/cut_bugreport.txt.gz\": it is cut off)"}};
  for (const auto& [report, error] : failures) {
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(std::regex_replace(line, kTime, "TIME"),
              R"({"Outcome":{"Report":"reports/)" + report + R"(,TIME,"Hash":")" +
                  hash("reports/" + report.substr(0, report.find('"'))) + R"(","Error":")" + error +
                  R"("}})");
  }
  for (const std::string& origin : kOrigins) {
    std::string line;
    std::getline(lines, line);
    std::string document = files.at(origin + "_bugreport.resolved.json");
    document = std::regex_replace(document, std::regex("\n *"), "");
    EXPECT_EQ(line, std::regex_replace(document, std::regex("\": "), "\":")) << origin;
    EXPECT_NE(line.find(hash("reports/" + origin + "_bugreport.txt")), std::string::npos);
  }
  const std::string archives = files.at("macos_bugreport.resolved.json");
  EXPECT_TRUE(std::regex_search(
      archives,
      std::regex(R"re("Build": "R15.5-400",\s+"File": "archives/r15/y/builds/R15.5-400_)re"
                 R"re(dsym.zip",\s+"Identity": "zip-[0-9a-f]{32}")re")))
      << archives;
}

TEST_F(ResolveOriginsTest, ProgramsMayHaveAnyName) {
  std::string report = ReadFile(folder_ / "reports/tarvo_bugreport.txt");
  report.replace(report.find("crashdemo("), 9, ".pro:g");
  Write("any/r_bugreport.txt", report);
  ASSERT_EQ(Resolve({"any"}).exitStatus, 0);
  const auto files = Files("any");
  for (const char* name : {"\"ModuleName\": \".pro:g\",\n          \"FunctionName\"",
                           "\"ModuleName\": \".pro:g\",\n      \"Executable\": \"\""})
    EXPECT_NE(files.at("r_bugreport.resolved.json").find(name), std::string::npos) << name;
  EXPECT_NE(files.at("r_bugreport.source").find("\nModuleName = .pro:g\r\n"), std::string::npos);
}

TEST_F(ResolveOriginsTest, SaysWhatWasDoneAndWhatIsMissing) {
  Write("reports/bad_bugreport.txt", "Some other report {}");
  Write("reports/macos_bugreport.log", "TARVO_Crash_Report {}");
  const auto end = Resolve({"reports", "reports/macos_bugreport.txt", "reports/macos_bugreport.log",
                            "missing", "/dev/null", "--jobs", "2", "--summary", "summary.json"});
  EXPECT_EQ(end.exitStatus, 1);
  EXPECT_EQ(end.errors, "");
  EXPECT_EQ(WithoutCalls(end.output), R"(Reports: 5 read, 4 resolved, 4 failed
Frames:  12, 1 resolved (8.3 %)
          3  no module or no address in the report
          4  module not listed in the report
          3  no build in the report
          1  address outside what the symbols cover
Symbols to ask for, those that most reports want first:
  R15.6-4213, linux: 1 report, 1 frame
    wanted: R15.6-4213_dsym.zip with
      application.app.dsym (crashdemo): 1 report, 1 frame; address outside what the symbols cover
    there is: archives/r15/x3/builds/R15.6-4213_dsym.zip
  no build stated, linux: 1 report, 1 frame
    wanted: the build of these modules (--build names that of reports)
      kernel_app: 1 report, 1 frame
  no build stated, windows: 1 report, 1 frame
    wanted: the build of these modules (--build names that of reports)
      my plug-in 2.dll: 1 report, 1 frame
Not to be asked for: of the system, of the crash handler, or not listed in its report:
  libc.so.6, linux: 2 reports, 2 frames: module not listed in the report
  libstdc++.so.6, linux: 1 report, 1 frame: module not listed in the report
  ?, windows: 1 report, 1 frame: module not listed in the report
  KERNEL32.DLL, windows: 1 report, 1 frame: module not listed in the report
Symbols were looked for in:
  archives, archives of builds
Failed:
  /dev/null: It is neither a file nor a directory.
  missing: There is no such file or directory.
  reports/bad_bugreport.txt: Wrong type of report: Some
  reports/macos_bugreport.txt: Its outcome would have the same name as that of reports/macos_bugreport.log.
)");
  EXPECT_EQ(ReadFile(folder_ / "summary.json"), R"({
  "Reports": {
    "Read": 5,
    "Resolved": 4,
    "Failed": 4,
    "Damaged": 0,
    "CutOff": 0,
    "UpToDate": 0,
    "KnownBad": 0,
    "Kept": 0,
    "NotComeTo": 0
  },
  "Frames": {
    "All": 12,
    "Resolved": 1,
    "NoModule": 3,
    "ModuleNotListed": 4,
    "NoBuild": 3,
    "ArchiveMissing": 0,
    "ArchiveUnreadable": 0,
    "BundleMissing": 0,
    "NoDebugInformation": 0,
    "AddressOutside": 1,
    "SymbolsWrong": 0
  },
  "Missing": [
    {
      "Reason": "AddressOutside",
      "Platform": "linux",
      "Build": "R15.6-4213",
      "Archive": "R15.6-4213_dsym.zip",
      "Module": "crashdemo",
      "Bundle": "application.app.dsym",
      "Reports": 1,
      "Frames": 1,
      "Found": "archives/r15/x3/builds/R15.6-4213_dsym.zip",
      "Error": "no such address"
    },
    {
      "Reason": "NoBuild",
      "Platform": "linux",
      "Module": "kernel_app",
      "Bundle": "kernel_app.app.dsym",
      "Reports": 1,
      "Frames": 1,
      "Error": "There is no value of key Build"
    },
    {
      "Reason": "NoBuild",
      "Platform": "windows",
      "Module": "my plug-in 2.dll",
      "Bundle": "my plug-in 2.dll.dsym",
      "Reports": 1,
      "Frames": 1,
      "Error": "There is no value of key Build"
    },
    {
      "Reason": "ModuleNotListed",
      "Platform": "linux",
      "Module": "libc.so.6",
      "Reports": 1,
      "Frames": 1,
      "Owner": "System"
    },
    {
      "Reason": "NoBuild",
      "Platform": "linux",
      "Module": "libc.so.6",
      "Bundle": "libc.so.6.dsym",
      "Reports": 1,
      "Frames": 1,
      "Owner": "System",
      "Error": "There is no value of key Build"
    },
    {
      "Reason": "ModuleNotListed",
      "Platform": "linux",
      "Module": "libstdc++.so.6",
      "Reports": 1,
      "Frames": 1,
      "Owner": "System"
    },
    {
      "Reason": "ModuleNotListed",
      "Platform": "windows",
      "Module": "?",
      "Reports": 1,
      "Frames": 1
    },
    {
      "Reason": "ModuleNotListed",
      "Platform": "windows",
      "Module": "KERNEL32.DLL",
      "Reports": 1,
      "Frames": 1,
      "Owner": "System"
    }
  ],
  "Failures": [
    {
      "Report": "/dev/null",
      "Error": "It is neither a file nor a directory."
    },
    {
      "Report": "missing",
      "Error": "There is no such file or directory."
    },
    {
      "Report": "reports/bad_bugreport.txt",
      "Error": "Wrong type of report: Some"
    },
    {
      "Report": "reports/macos_bugreport.txt",
      "Error": "Its outcome would have the same name as that of reports/macos_bugreport.log."
    }
  ],
  "Damaged": [],
  "KnownBad": [],
  "Refused": []
}
)");
  const auto quiet = Resolve({"reports", "--quiet"});
  EXPECT_EQ(quiet.exitStatus, 1);
  EXPECT_EQ(WithoutCalls(quiet.output) + quiet.errors,
            "tarvo: reports/bad_bugreport.txt: Wrong type of report: Some\n");
}

TEST_F(ResolveOriginsTest, ReadsDamagedReportsAsFarAsTheyGo) {
  const std::string whole = ReadFile(folder_ / "reports/tarvo_bugreport.txt");
  // In the second thread's registers, and behind the modules.
  Write("cut/a_bugreport.txt", whole.substr(0, whole.find("Call_Stack_Thread_4712") + 60));
  std::string odd = whole;
  odd.insert(odd.find("\tException\n") + 14, "\t\t(odd\n");
  Write("cut/b_bugreport.txt", odd);
  Write("cut/none_bugreport.txt", "TARVO_Crash_Report\n{\n\tnonsense\n");
  const auto end = Resolve({"cut", "--summary", "summary.json"});
  EXPECT_EQ(end.exitStatus, 1) << "of one report nothing could be read";
  EXPECT_TRUE(WithoutCalls(end.output)
                  .starts_with("Reports: 3 read, 2 resolved, 1 failed, 2 damaged and resolved in "
                               "part (1 cut off)\n"))
      << end.output;
  const std::string cutLine = std::to_string(
      std::ranges::count(whole.substr(0, whole.find("Call_Stack_Thread_4712") + 60), '\n') + 1);
  EXPECT_NE(end.output.find("Damaged or cut off, and resolved as far as they go:\n"
                            "  cut/a_bugreport.txt: cut off in line " +
                            cutLine + "\n  cut/b_bugreport.txt: line "),
            std::string::npos)
      << end.output;
  EXPECT_NE(Tarvo({"show", "cut/a_bugreport.resolved.json"})
                .output.find("  Cut off      line " + cutLine + ": "),
            std::string::npos);
  EXPECT_NE(ReadFile(folder_ / "summary.json").find("\"Damaged\": 2,"), std::string::npos);
  auto files = Files("cut");
  const std::string cut = files.at("a_bugreport.resolved.json");
  EXPECT_NE(cut.find("\"__libc_start_main + 0x85\""), std::string::npos) << cut;
  EXPECT_NE(cut.find("\"Damage\": [\n    {\n      \"Line\": "), std::string::npos) << cut;
  // The line is that of the report, not of the normalized copy, which has one more before it.
  const auto line = std::to_string(std::ranges::count(odd.substr(0, odd.find("(odd")), '\n') + 1);
  const std::string& document = files.at("b_bugreport.resolved.json");
  EXPECT_NE(document.find("\"Line\": " + line +
                          ",\n      \"Expected\": \"ParseException found an error in line " + line +
                          " with (\""),
            std::string::npos)
      << document;
  EXPECT_EQ(Resolve({"cut/b_bugreport.txt"}).exitStatus, 0);
  const auto strict = Resolve({"cut/b_bugreport.txt", "--strict"});
  EXPECT_EQ(strict.exitStatus, 1);
  EXPECT_NE(strict.output.find("ParseException found an error in line"), std::string::npos);
}

/// The first frames' text in UTF-16.
std::string Utf16(const std::string& text, bool isBig) {
  std::string wide;
  for (const char c : text) {
    if (isBig) wide += '\0';
    wide += c;
    if (!isBig) wide += '\0';
  }
  return wide;
}

TEST_F(ResolveOriginsTest, ReadsPackedAndWideReports) {
  const std::string report = ReadFile(folder_ / "reports/linux_bugreport.txt");
  Write("packed/a_bugreport.txt", report);
  Write("packed/b_bugreport.txt", report);
  ASSERT_EQ(
      Run({"sh", "-c", "gzip packed/a_bugreport.txt && xz packed/b_bugreport.txt"}).exitStatus, 0);
  Write("packed/c_bugreport.txt", "\xFF\xFE" + Utf16(report, false));
  Write("packed/d_bugreport.txt", "\xFE\xFF" + Utf16(report, true));
  Write("packed/e_bugreport.txt", Utf16(report, false));
  // Cut off: what comes before the cut is read.
  const std::string gzip = ReadFile(folder_ / "packed/a_bugreport.txt.gz");
  const std::string xz = ReadFile(folder_ / "packed/b_bugreport.txt.xz");
  Write("packed/f_bugreport.txt.gz", gzip.substr(0, 9));
  Write("packed/g_bugreport.txt.gz", gzip.substr(0, gzip.size() - 90));
  Write("packed/h_bugreport.txt.xz", xz.substr(0, xz.size() - 90));
  Write("packed/i_bugreport.txt.gz", gzip + gzip);  // one behind the other: two reports in one
  const auto end = Resolve({"packed", "reports/linux_bugreport.txt"});
  EXPECT_EQ(end.exitStatus, 1);
  EXPECT_NE(end.output.find("Reports: 10 read, 9 resolved, 1 failed, 3 damaged"), std::string::npos)
      << end.output;
  EXPECT_NE(end.output.find("f_bugreport.txt.gz: Could not unpack: it is cut off\n"),
            std::string::npos)
      << end.output;
  const std::string expected =
      WithoutOutcome(ReadFile(folder_ / "reports/linux_bugreport.resolved.json"));
  const auto files = Files("packed");
  for (const char* name : {"a", "b", "c", "d", "e"})
    EXPECT_EQ(WithoutOutcome(files.at(std::string(name) + "_bugreport.resolved.json")), expected)
        << name;
  for (const char* name : {"g", "h"}) {
    const std::string& document = files.at(std::string(name) + "_bugreport.resolved.json");
    EXPECT_NE(document.find("\"Expected\": \"Could not unpack all of it: it is cut off\""),
              std::string::npos)
        << document;
    EXPECT_NE(document.find("\"ModuleName\": \"kernel_app\""), std::string::npos)
        << name << document;
  }
  EXPECT_EQ(Tarvo({"normalize", "packed/b_bugreport.txt.xz"}).output, report);
}

// What cannot be written is one report's failure, whose file is named; the others are done.
TEST_F(ResolveOriginsTest, OutcomesThatCannotBeWrittenAreNamed) {
  const std::string report = ReadFile(folder_ / "reports/linux_bugreport.txt");
  const std::string longName = std::string(241, 'n') + "_bugreport.txt";
  std::string large = report;
  large.insert(large.find("\tCritical_Log") == std::string::npos ? large.size()
                                                                 : large.find("\tCritical_Log"),
               "\tApplicationInfo\n\t{\n\t\tx: " + std::string(3 << 20, 'x') + "\n\t}\n");
  Write("out/" + longName, report);
  Write("out/large_bugreport.txt", large);
  Write("out/taken_bugreport.txt", report);
  Write("out/taken_bugreport.resolved.json/x", "a directory");
  Write("out/z_bugreport.txt", report);
  const auto end = Run({"bash", "-c", "ulimit -f 2048; exec \"$@\"", "bash", TARVO_PROGRAM,
                        "resolve", "out", "--archives", "archives", "--cache", "cache"});
  EXPECT_EQ(end.exitStatus, 1) << end.output << end.errors;
  EXPECT_NE(end.output.find("Reports: 4 read, 1 resolved, 3 failed"), std::string::npos);
  for (const std::string& text : {std::string("n_bugreport.resolved.json\": File name too long"),
                                  std::string("large_bugreport.resolved.json\": File too large"),
                                  std::string("taken_bugreport.resolved.json\": Is a directory")})
    EXPECT_NE(end.output.find(text), std::string::npos) << text << end.output;
  EXPECT_TRUE(fs::exists(folder_ / "out/z_bugreport.resolved.json"));
  for (const auto& entry : fs::directory_iterator(folder_ / "out"))
    EXPECT_FALSE(entry.path().filename().string().starts_with(".tarvo-")) << entry.path();
}

TEST_F(ResolveOriginsTest, LeavesAloneWhatIsUpToDate) {
  const auto age = [&](const std::string& file, int hours) {
    fs::last_write_time(folder_ / file,
                        fs::file_time_type::clock::now() - std::chrono::hours(hours));
  };
  const auto counts = [&] {
    const std::string output =
        WithoutCalls(Resolve({"reports", "--missing-only", "--summary", "summary"}).output);
    return output.substr(0, output.find('\n'));
  };
  const auto missing = [&] {
    const std::string summary = ReadFile(folder_ / "summary");
    return summary.substr(std::min(summary.size(), summary.find("\"Missing\": [\n")));
  };
  const std::string archive = "archives/r15/y/builds/R15.5-400_dsym.zip";  // of the macOS report
  const std::string whole = ReadFile(folder_ / archive);
  EXPECT_EQ(counts(), "Reports: 4 read, 4 resolved, 0 failed");
  const std::string first = missing();
  EXPECT_NE(first, "");
  EXPECT_EQ(counts(), "Reports: 0 read, 0 resolved, 0 failed, 4 up to date");
  EXPECT_EQ(missing(), first) << "what is left alone is asked for all the same";
  // Times say nothing: `cp -p` and `rsync -t` keep them, others change them.
  age("reports/linux_bugreport.resolved.json", 10);
  age(archive, -1);
  Write("reports/linux_bugreport.txt", ReadFile(folder_ / "reports/linux_bugreport.txt") + "\n");
  fs::remove(folder_ / "reports/windows_bugreport.source");
  EXPECT_EQ(counts(), "Reports: 2 read, 2 resolved, 0 failed, 2 up to date");
  // A half copy, and its rest: neither loses what was known before.
  Write(archive, whole.substr(0, whole.size() / 2));
  age(archive, 9);
  EXPECT_EQ(counts(), "Reports: 1 read, 1 resolved, 0 failed, 3 up to date");
  Write(archive, whole);
  age(archive, 9);
  EXPECT_EQ(counts(), "Reports: 1 read, 1 resolved, 0 failed, 3 up to date");
  EXPECT_EQ(counts(), "Reports: 0 read, 0 resolved, 0 failed, 4 up to date");
  // An archive that cannot be unpacked for the machine's sake is tried again each time.
  fs::remove_all(folder_ / "cache");
  Write("cache/R15.5-400", "in the way");
  Resolve({"reports", "--force"});
  EXPECT_EQ(counts(), "Reports: 1 read, 1 resolved, 0 failed, 3 up to date");
  fs::remove(folder_ / "cache/R15.5-400");
  EXPECT_EQ(counts(), "Reports: 1 read, 1 resolved, 0 failed, 3 up to date");
  EXPECT_EQ(counts(), "Reports: 0 read, 0 resolved, 0 failed, 4 up to date");
}

// Nothing is written beside the reports, and none of two reports of one name is lost.
TEST_F(ResolveOriginsTest, OutcomesGoBelowAnotherDirectory) {
  for (const std::string report : {"mon/linux", "tue/linux", "tue/deep/windows"})
    Write(
        "share/" + report + "_bugreport.txt",
        ReadFile(folder_ / ("reports/" + report.substr(report.rfind('/') + 1) + "_bugreport.txt")));
  const auto files = [&](const char* directory) {
    std::set<std::string> found;
    for (const auto& entry : fs::recursive_directory_iterator(folder_ / directory))
      if (entry.is_regular_file()) found.insert(fs::relative(entry, folder_ / directory));
    return found;
  };
  const auto originals = files("share");
  const std::pair<Texts, Texts> cases[] = {
      {{"share"}, {"mon/linux", "tue/deep/windows", "tue/linux"}},
      {{"share/tue", "share/mon"}, {"mon/linux", "tue/deep/windows", "tue/linux"}},
      {{"share/mon/linux_bugreport.txt", "share/tue/linux_bugreport.txt"},
       {"mon/linux", "tue/linux"}},
      {{"share/tue/deep"}, {"windows"}},
  };
  for (auto [paths, expected] : cases) {
    fs::remove_all(folder_ / "out");
    paths.insert(paths.end(), {"--output", "out/new"});
    EXPECT_EQ(Resolve(paths).exitStatus, 0);
    std::set<std::string> outcomes;
    for (const std::string& report : expected)
      for (const char* suffix : {"_bugreport.resolved.json", "_bugreport.source"})
        outcomes.insert(report + suffix);
    EXPECT_EQ(files("out/new"), outcomes) << paths.front();
    paths.emplace_back("--missing-only");
    EXPECT_NE(Resolve(paths).output.find(std::to_string(expected.size()) + " up to date"),
              std::string::npos);
  }
  EXPECT_EQ(files("share"), originals);
  ASSERT_EQ(Resolve({"share/tue/deep"}).exitStatus, 0);
  for (const std::string name : {"windows_bugreport.resolved.json", "windows_bugreport.source"})
    EXPECT_EQ(ReadFile(folder_ / "out/new" / name), ReadFile(folder_ / "share/tue/deep" / name));
}

// What nothing can be read of fails once; what only this machine lacks is tried again.
TEST_F(ResolveOriginsTest, AReportKnownToBeBadFailsOnce) {
  const std::string good = ReadFile(folder_ / "reports/linux_bugreport.txt");
  Write("in/a_bugreport.txt", "Some other report {}");
  Write("in/b_bugreport.txt", "");
  Write("in/c_bugreport.txt.gz", "\x1f\x8b\x08");
  Write("in/d_bugreport.txt", good);
  Write("in/e_bugreport.txt", good);
  Write("in/e_bugreport.resolved.json/x", "a directory");
  const std::string bad = ", 3 known to be bad (--force tries them again)";
  const struct {
    const char* what;
    std::function<void()> change;
    Texts options;
    int status;
    std::string counts;
  } kCases[] = {
      {"the first time", [] {}, {"--strict"}, 1, "5 read, 1 resolved, 4 failed"},
      {"which notes nothing", [] {}, {}, 1, "4 read, 0 resolved, 4 failed, 1 up to date"},
      {"and again", [] {}, {}, 1, "1 read, 0 resolved, 1 failed, 1 up to date" + bad},
      {"the rest is well",
       [&] { fs::remove_all(folder_ / "in/e_bugreport.resolved.json"); },
       {},
       0,
       "1 read, 1 resolved, 0 failed, 1 up to date" + bad},
      {"on request", [] {}, {"--force"}, 1, "3 read, 0 resolved, 3 failed, 2 up to date"},
      {"another content",
       [&] { Write("in/a_bugreport.txt", good); },
       {},
       0,
       "1 read, 1 resolved, 0 failed, 2 up to date, 2 known to be bad (--force tries them again)"},
      {"and a worse one",
       [&] { Write("in/a_bugreport.txt", "TARVO_Crash_Report\n{\n\tx\n"); },
       {},
       1,
       "1 read, 0 resolved, 1 failed, 2 up to date, 2 known to be bad (--force tries them again)"},
  };
  for (const auto& [what, change, options, status, counts] : kCases) {
    change();
    Texts line = {"in", "--missing-only"};
    line.insert(line.end(), options.begin(), options.end());
    const auto end = Resolve(line);
    EXPECT_EQ(end.exitStatus, status) << what;
    const std::string output = WithoutCalls(end.output);
    EXPECT_EQ(output.substr(0, output.find('\n')), "Reports: " + counts) << what;
  }
  EXPECT_FALSE(fs::exists(folder_ / "in/a_bugreport.source")) << "it is of another content";
}

TEST_F(ResolveOriginsTest, RefusesWrongUsage) {
  const std::string hint = "\nRun `tarvo --help` for more information.\n";
  const std::pair<Texts, std::string> cases[] = {
      {{"resolve"}, "tarvo: PATH is required" + hint},
      {{"resolve", "reports", "--archives-only", "--debug-directory", "d"},
       "tarvo: --debug-directory excludes --archives-only" + hint},
      {{"resolve", "reports", "--archives", "a", "--cache", "c"},
       "tarvo: The archive directory \"a\" is no directory.\n"},
      {{"resolve", "reports", "--jobs", "0"},
       "tarvo: --jobs: Value 0 not in range 1 to 256" + hint},
      {{"resolve", "reports", "--exact", "--adjust"}, "tarvo: --exact excludes --adjust" + hint},
      {{"normalize"}, "tarvo: REPORT is required" + hint},
  };
  for (const auto& [arguments, expected] : cases) {
    const auto end = Tarvo(arguments);
    EXPECT_EQ(end.exitStatus, 2) << expected;
    EXPECT_EQ(end.output + end.errors, expected);
  }
}

}  // namespace
}  // namespace tarvo
