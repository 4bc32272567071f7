// Whole crash logs, from the text of a report to the frames and the lines on the console.

#include "crashlog/base/property_names.h"
#include "crashlog/crash_log.h"
#include "crashlog/reading/report_reader.h"
#include "resolve_fixture.h"

namespace tarvo::crashhandler {
namespace {

/// A report with a library "lib.so" of build `build` at 0x7000 and an executable of build E1 at
/// 0x100001000, and one thread with `frames`.
std::string Report(const std::string& applicationInfo, const std::string& build,
                   const std::string& frames) {
  return "TARVO_Crash_Report\n{\nApplicationInfo\n{\n" + applicationInfo +
         "\n}\nCall_Stacks\n{\nCall_Stack_Thread_7\n{\n" + frames +
         "\nVariables\n{\nThreadName = worker\n}\n}\n}\nLoaded_Modules\n{\n"
         "ModuleName = the Timber app\n{\nBaseAddress = 0x100001000\nBuild = E1\n}\n"
         "ModuleName = lib.so\n{\nBaseAddress = 0x7000\nBuild = " +
         build +
         "\n}\n"
         "ModuleName = lib.so\n{\nBaseAddress = 0x9000\nBuild = second of its name\n}\n"
         "ModuleName = no base\n{\nBuild = B1\n}\n"
         "ModuleName = no build\n{\nBaseAddress = 0x1\n}\n"
         "ModuleName = empty build\n{\nBaseAddress = 0x1\nBuild =\n}\n"
         "ModuleName = text flag\n{\nBaseAddress = 0x1\nBuild = B1\nIsExecutable = true\n}\n}\n}\n";
}

std::string Frame(const std::string& module, const std::string& function, const std::string& pc) {
  return module + ":\t" + function + " (SP: 0x1, PC: 0x" + pc + ")\n";
}

void AddValues(std::string& line, const DataDictionary& frame) {
  for (const auto& [key, value] : frame) {
    if (const auto* text = value.As<String>()) line += Format("@ ", *text);
    if (const auto* number = value.As<std::uint64_t>()) line += Format("0x@{x} ", *number);
    if (const auto* number = value.As<std::int64_t>()) line += Format("line @ ", *number);
    if (const auto* callers = value.As<DataArray>()) {
      line += key == property::kInlinedInto ? "[ " : "? ";
      for (const DataValue& caller : *callers) AddValues(line, *caller.As<DataDictionary>());
      line += "] ";
    }
  }
}

/// Each frame on a line: its values in their order.
std::vector<std::string> FramesOf(const DataDictionary& crashLog) {
  std::vector<std::string> lines;
  for (const DataValue& thread : *crashLog.FindAs<DataArray>(property::kThreads)) {
    const auto* frames = thread.As<DataDictionary>()->FindAs<DataArray>(property::kCallstack);
    for (const DataValue& frame : *frames)
      AddValues(lines.emplace_back(), *frame.As<DataDictionary>());
  }
  return lines;
}

class CrashLogResolveTest : public ResolveFixture {
 protected:
  /// Resolves and returns the frames; what was said and asked is in Said().
  Lines Resolve(const std::string& report) {
    Result<DataDictionary> tree = ParseReport(report);
    EXPECT_TRUE(tree) << tree.GetError().Text().View();
    CrashLog crashLog(*std::move(tree));
    EXPECT_TRUE(crashLog.Resolve(Place("archives"), Place("cache")));
    return FramesOf(crashLog.Data());
  }
  Lines Said() { return framework_.output.TakeLines(); }
  std::string Load(const std::string& bundle, const std::string& architecture = "x86_64") {
    return "load " + Text("cache/" + bundle) + " " + architecture;
  }
};

TEST_F(CrashLogResolveTest, FramesAreAskedForInOrderAndCompleted) {
  WriteArchive("archives/B1_dsym.zip", {"lib.so.dsym/"});
  WriteArchive("archives/E1_dsym.zip", {"application.app.dsym/", "Pallado Pebble.app.dsym/"});
  framework_.answers = {
      {"lib.so.dsym",
       {{0x234, {"Crash(int)", "lib.cpp", 12}}, {0 - 0x7000ULL, {"Null", "n.cpp", 0}}}},
      {"application.app.dsym", {{0x100000234, {"main", "main.cpp", 7}}}},
      {"Pallado Pebble.app.dsym", {{0x100001234, {"old main", "old.cpp", 8}}}},
  };
  const std::string frames = Frame("lib.so", "Crash + 0x10", "7234") +
                             Frame("the Timber app", "?", "100001234") + Frame("lib.so", "", "0");
  const Lines library = {"lib.so Crash(int) 0x7234 lib.cpp line 12 "};
  const Lines atNull = {"lib.so 0x0 Null n.cpp line 0 "};
  struct Case {
    const char* info;
    std::string architecture;
    std::string executable;
    const char* offset;
    const char* frame;
  };
  const Case cases[] = {
      {"PALLADO_Version: 15.6", "x86_64", "application.app", "0x100000234",
       "the Timber app main 0x100001234 main.cpp line 7 "},
      {"PALLADO_Version = 15.59\nTargetCpuArchitecture: arm64", "arm64", "Pallado Pebble.app",
       "0x100001234", "the Timber app old main 0x100001234 old.cpp line 8 "},
      {"Other: 1\nTargetCpuArchitecture:", "x86_64", "application.app", "0x100000234",
       "the Timber app main 0x100001234 main.cpp line 7 "},
  };
  for (const Case& test : cases) {
    const Lines resolved = Resolve(Report(test.info, "B1", frames));
    EXPECT_EQ(resolved, (Lines{library[0], test.frame, atNull[0]})) << test.info;
    EXPECT_EQ(Said(),
              (Lines{Load("B1/lib.so.dsym", test.architecture), "resolve 0x234",
                     Load("E1/" + test.executable + ".dsym", test.architecture),
                     std::string("resolve ") + test.offset,
                     Load("B1/lib.so.dsym", test.architecture), "resolve 0xffffffffffff9000"}))
        << test.info;
  }
}

TEST_F(CrashLogResolveTest, AReaderOfChainsGivesTheCallersToo) {
  WriteArchive("archives/B1_dsym.zip", {"lib.so.dsym/"});
  framework_.answersChains = true;
  framework_.answers = {
      {"lib.so.dsym",
       {{0x234, {"Inner", "in.h", 12, {{"Middle", "mid.h", 5}, {"Outer()", "lib.cpp", 40}}}},
        {0x300, {"Alone", "lib.cpp", 3}}}}};
  const std::string frames = Frame("lib.so", "?", "7234") + Frame("lib.so", "?", "7300");
  for (const auto& [info, architecture] : std::map<std::string, std::string>{
           {"TargetCpuArchitecture: arm64", "arm64"}, {"PALLADO_Version: 15.6", ""}}) {
    EXPECT_EQ(Resolve(Report(info, "B1", frames)),
              (Lines{"lib.so Inner 0x7234 in.h line 12 [ Middle mid.h line 5 Outer() lib.cpp line "
                     "40 ] ",
                     "lib.so Alone 0x7300 lib.cpp line 3 "}));
    const std::string load = Load("B1/lib.so.dsym", architecture);
    EXPECT_EQ(Said(), (Lines{load, "chain 0x234", "chain 0x300"}));
  }
}

TEST_F(CrashLogResolveTest, ASourceIsAskedForWhatTheArchiveDoesNotHave) {
  WriteArchive("archives/B1_dsym.zip", {"lib.so.dsym/"});
  WriteArchive("archives/B2_dsym.zip", {"other.dsym/"});
  framework_.answersChains = true;
  framework_.answers = {{"usable", {{0x234, {"Inner", "in.h", 12}}, {0x235, {"Symbol", "", 0}}}}};
  framework_.makeSource = [this]() -> Ref<Object> {
    return Make<RecordingSource>(std::vector<std::string>{"/of/another/build", "/usable"},
                                 [this](const String& said) { framework_.output.Add("", said); });
  };
  const std::string frames = Frame("lib.so", "?", "7234") + Frame("lib.so", "?", "7235") +
                             Frame("none.so", "?", "7234") + Frame("lib.so", "?", "7234");
  // Once for frames that follow each other.
  const Lines tried = {"load /of/another/build abcd",
                       "refused build: no symbols",
                       "load /usable abcd",
                       "load /usable abcd",
                       "chain 0x234",
                       "chain 0x235",
                       "load /usable abcd",
                       "chain 0x234"};
  Lines archive = {"load " + Text("cache/B1/lib.so.dsym") + " abcd",
                   "refused lib.so.dsym: no symbols"};
  archive.insert(archive.end(), tried.begin(), tried.end());
  // The archive's bundle is of another build; no bundle; no archive; no build.
  for (const auto& [build, said] :
       std::map<std::string, Lines>{{"B1", archive}, {"B2", tried}, {"B3", tried}, {"", tried}}) {
    EXPECT_EQ(Resolve(Report("", build, frames)),
              (Lines{"lib.so Inner 0x7234 in.h line 12 ", "lib.so Symbol 0x7235  line 0 0x5 ",
                     "none.so ? 0x7234 ", "lib.so Inner 0x7234 in.h line 12 "}));
    EXPECT_EQ(Said(), said) << build;
  }
}

TEST_F(CrashLogResolveTest, DiagnosticLevelsTellOfWhatFailed) {
  WriteArchive("archives/B1_dsym.zip", {"lib.so.dsym/", "text flag.dsym/"});
  framework_.answers = {{"lib.so.dsym", {{0x234, {"Crash(int)", "lib.cpp", 12}}}}};
  const std::string frames = Frame("lib.so", "Crash", "7234") + Frame("lib.so", "unknown", "7ABC") +
                             Frame("lib.so", "", "7abd") + Frame("the Timber app", "main", "1") +
                             Frame("no base", "f1", "1") + Frame("no build", "f2", "2") +
                             Frame("empty build", "f3", "3") + Frame("text flag", "", "4") +
                             Frame("not listed", "f5", "5") + Frame("?", "?", "6") +
                             "lib.so:\tno address\n";
  const Lines noSymbols = {"Could not find symbol archive for E1."};
  Resolve(Report("", "another missing one", Frame("lib.so", "", "1")));
  Said();
  const Lines frameErrors = {"unknown (0x7abc)", "lib.so (0x7abd)", noSymbols[0],     "f1 (0x1)",
                             "f2 (0x2)",         "f3 (0x3)",        "text flag (0x4)"};
  Lines dump = {"ThreadName: worker", "Crash(int) in lib.cpp  line 12"};
  dump.insert(dump.end(), frameErrors.begin(), frameErrors.end());
  // The error of the executable's symbols was the last one in this process after the second run.
  dump.erase(std::ranges::find(dump, noSymbols[0]));
  const std::pair<int, Lines> cases[] = {{0, {}}, {1, frameErrors}, {2, dump}};
  for (const auto& [level, lines] : cases) {
    g_crashlogResolveDiagnosticOutput = level;
    EXPECT_EQ(Resolve(Report("", "B1", frames)),
              (Lines{"lib.so Crash(int) 0x7234 lib.cpp line 12 ", "lib.so unknown 0x7abc ",
                     "lib.so 0x7abd ", "the Timber app main 0x1 ", "no base f1 0x1 ",
                     "no build f2 0x2 ", "empty build f3 0x3 ", "text flag 0x4 ",
                     "not listed f5 0x5 ", "? ? 0x6 ", "lib.so no address "}));
    Lines said = Said();
    std::erase_if(said, [](const std::string& line) {
      return line.starts_with("load ") || line.starts_with("resolve ");
    });
    EXPECT_EQ(said, lines) << level;
  }
}

TEST_F(CrashLogResolveTest, TheSameErrorIsToldOnceWhileNoOtherCameBetween) {
  std::string frames;
  for (int i = 0; i < 10; ++i) frames += Frame("lib.so", "f", "7001");
  const std::string missing = "Could not find symbol archive for M1.";
  const std::string missingApp = "Could not find symbol archive for E1.";
  Resolve(Report("", "M1", frames));
  EXPECT_EQ(Said(), (Lines{missing}));
  Resolve(Report("", "M1", frames));
  EXPECT_EQ(Said(), Lines());
  const std::string other = Frame("the Timber app", "f", "1");
  Resolve(Report("", "M1", frames + other + frames + other));
  EXPECT_EQ(Said(), (Lines{missingApp, missing, missingApp}));
}

TEST_F(CrashLogResolveTest, AnObserverIsToldWhatBecomesOfEachFrame) {
  WriteArchive("archives/B1_dsym.zip", {"lib.so.dsym/", "text flag.dsym/"});
  WriteFile("archives/E1_dsym.zip", "no archive");
  framework_.answers = {{"lib.so.dsym", {{0x234, {"Crash(int)", "lib.cpp", 12}}}}};
  Lines told;
  framework_.frames = &told;
  const std::string frames = Frame("lib.so", "", "7234") + "lib.so:\tno address\n" +
                             Frame("not listed", "", "5") + Frame("no build", "", "2") +
                             Frame("the Timber app", "", "1") + Frame("lib.so", "", "7ABC");
  Resolve(Report("", "B1", frames));
  const std::string cut =
      "Could not extract \"" + Text("archives/E1_dsym.zip") + "\": Unrecognized archive format";
  EXPECT_EQ(told, (Lines{"0 B1 ", "1  ", "2  ", "3  There is no value of key Build", "5 E1 " + cut,
                         "8 B1 no such address"}));
  told.clear();
  Resolve(Report("", "B9", Frame("lib.so", "", "1") + Frame("text flag", "", "1")));
  EXPECT_EQ(told, (Lines{"4 B9 Could not find symbol archive for B9.",
                         "3  Another type has key IsExecutable"}));
  told.clear();
  WriteArchive("archives/B2_dsym.zip", {"other.so.dsym/"});
  Resolve(Report("", "B2", Frame("lib.so", "", "1")));
  EXPECT_EQ(told,
            (Lines{"6 B2 Symbol file " + Text("cache/B2/lib.so.dsym") + " for B2 not found."}));
  told.clear();
  framework_.answers.clear();
  Resolve(Report("", "B1", Frame("lib.so", "", "7234")));
  EXPECT_EQ(told, (Lines{"7 B1 no symbols"}));
}

}  // namespace
}  // namespace tarvo::crashhandler
