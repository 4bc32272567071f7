// What `tarvo resolve` says: what was done, what is missing, what cannot be written, and how it is
// to be used.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "resolve_fixture.h"

namespace tarvo {
namespace {

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
