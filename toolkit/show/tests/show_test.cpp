// Prints crash logs with the real program, and hostile ones in this process.

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/program.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/document/crash_document.h"
#include "toolkit/document/demangled_name.h"
#include "toolkit/show/frame_line.h"
#include "toolkit/show/printer.h"

namespace tarvo::toolkit {
namespace {

using namespace std::string_literals;

std::string Data(const std::string& name) { return ReadFile(TEST_DATA "/" + name); }

/// Runs shell commands in the directory of the crash logs; "tarvo" there is the program.
ProgramResult Shell(const std::string& commands) {
  return RunProgram({"/bin/bash", "-c",
                     "cd '" TEST_DATA "'; tarvo() { '" TARVO_PROGRAM "' \"$@\"; }\n" + commands},
                    {.environment = {"TERM=xterm"}});
}

TEST(ShowTest, PrintsCrashLogs) {
  const struct {
    const char* arguments;
    const char* expected;
  } kCases[] = {
      {"own_crash.json", "own_crash.txt"},
      {"--all own_crash.json", "own_crash_all.txt"},
      {"--thread 17425 --color always own_crash.json", "own_crash_coloured.txt"},
      {"macos_crash.json windows_crash.json unresolved_crash.json", "others.txt"},
      {"--json own_crash.json", "own_crash.json"},
  };
  for (const auto& [arguments, expected] : kCases) {
    const std::string columns = expected == "own_crash_coloured.txt"s ? "COLUMNS=64 " : "";
    const auto end = Shell("unset COLUMNS; " + columns + "tarvo show " + arguments);
    EXPECT_EQ(end.output, Data(expected)) << arguments;
    EXPECT_EQ(end.errors, "");
    EXPECT_EQ(end.exitStatus, 0);
  }
}

TEST(ShowTest, SourceIsLeftOutOnRequest) {
  const auto lines = [](const char* option) {
    return Shell("tarvo show --thread 17425 own_crash.json "s + option + " | grep -c │").output;
  };
  EXPECT_EQ(lines(""), "5\n");
  EXPECT_EQ(lines("--no-source"), "0\n");
  EXPECT_EQ(lines("--no-source --all"), "0\n");
}

TEST(ShowTest, FitsAndColoursTerminals) {
  // What a terminal of 64 columns gets, with line feeds as they left the program.
  const auto inTerminal = [](const std::string& environment) {
    return Shell("unset COLUMNS; script -qec 'stty cols 64 -onlcr; " + environment +
                 " " TARVO_PROGRAM " show --thread 17425 own_crash.json' /dev/null")
        .output;
  };
  const std::string plain =
      Shell("COLUMNS=64 tarvo show --thread 17425 --color never own_crash.json").output;
  EXPECT_EQ(inTerminal(""), Data("own_crash_coloured.txt"));
  EXPECT_EQ(inTerminal("NO_COLOR=1"), plain);
  EXPECT_EQ(inTerminal("TERM=dumb"), plain);
  EXPECT_EQ(plain.find('\x1b'), std::string::npos);
}

TEST(ShowTest, FailuresAreNamed) {
  constexpr const char* kHint = "\nRun `tarvo --help` for more information.";
  const struct {
    std::string commands;
    int status;
    std::string error;
  } kCases[] = {
      {"tarvo show none.json", 1, "Could not open \"none.json\": No such file or directory"},
      {"tarvo show .", 1, "Could not open \".\": It is no regular file"},
      {"tarvo show own_crash.json --thread 3", 1,
       "\"own_crash.json\": found no thread 3, expected one of: 17422, 17425, 17426."},
      {"tarvo show <(echo) 2>&1 >/dev/null | sed 's/fd.*:/fd:/' >&2; false", 1,
       "Could not open \"/dev/fd: It is no regular file"},
      {"tarvo show '" REPORTS "/macos_bugreport.txt'", 1,
       "\"" REPORTS
       "/macos_bugreport.txt\": found a crash report that is not resolved; run `tarvo resolve` on "
       "it first, and show the file *.resolved.json that it leaves."},
      {"large=$(mktemp); truncate -s 300M $large; tarvo show $large 2>&1 | "
       "sed 's/\".*\"/FILE/' >&2; rm $large; false",
       1, "FILE: found 314572800 bytes, expected at most 268435456."},
      {"tarvo show --color always own_crash.json >/dev/full", 1,
       "Could not write to standard output: No space left on device"},
      {"tarvo show", 2, "FILE is required"s + kHint},
      {"tarvo show --json --all own_crash.json", 2, "--all excludes --json"s + kHint},
      {"tarvo show --thread x own_crash.json", 2, "Could not convert: --thread = x"s + kHint},
  };
  for (const auto& [commands, status, error] : kCases) {
    const auto end = Shell(commands);
    EXPECT_EQ(end.errors, "tarvo: " + error + '\n');
    EXPECT_EQ(end.output, "") << commands;
    EXPECT_EQ(end.exitStatus, status) << commands;
  }
  // One bad file among several does not keep the others from being shown.
  const auto end = Shell("tarvo show none.json macos_crash.json");
  EXPECT_EQ(end.output, "== macos_crash.json\n" + Shell("tarvo show macos_crash.json").output);
  EXPECT_EQ(end.exitStatus, 1);
}

std::string Printed(const CrashDocument& document, const ShowOptions& options = {}) {
  char* text = nullptr;
  std::size_t size = 0;
  std::FILE* out = open_memstream(&text, &size);
  PrintCrashDocument(document, options, out);
  std::fclose(out);
  std::string printed(text, size);
  std::free(text);
  return printed;
}

/// What is printed of a document, or its error.
std::string Outcome(std::string_view json) {
  const auto document = ParseCrashDocument(json, "x");
  return document ? Printed(*document) : document.GetError().Text().ToStdString();
}

TEST(ShowTest, SaysWhatTheCaptureIsNotSureOf) {
  EXPECT_EQ(Outcome(R"({"Threads": [{"ThreadNumber": 1, "Properties": {"ThreadName": "a",
      "FramesMissing": "it did not stop", "RegistersMissing": "it could not be traced", "Task": "b",
      "GuessedFrames": "1 12"}, "Callstack": [{"FunctionName": "f"}, {"FunctionName": "g"},
      {"FunctionName": "h"}]}]})"),
            R"(Crash

Thread 1  a
  Task  b
  Frames are missing: it did not stop.
  Registers are missing: it could not be traced.
   0  f
   1  (guess) g
   2  h
)");
}

// Lines that were changed since would mislead: they are left out, which is said.
TEST(ShowTest, SourceIsShownWhereItMayBeWhatWasCompiled) {
  const TemporaryDirectory folder;
  const std::string source = (folder / "s.cpp").string();
  const std::string module = (folder / "m").string();
  const struct {
    int source;  ///< minutes behind 2026-01-01 10:00 UTC
    int module;  ///< 0: it is not on this machine
    const char* facts;
    bool takesAny;
    const char* expected;
    const char* checksum = "";
  } kCases[] = {
      {5, 0, R"("Outcome": {"Report": "r", "Time": "2026-01-01T10:05:00Z"},)", false, "> 1 │ here"},
      {6, 0, R"("Outcome": {"Report": "r", "Time": "2026-01-01T10:05:00Z"},)", false,
       "s.cpp was changed after the crash: not shown (--any-source shows it)"},
      {6, 0, R"("Outcome": {"Report": "r", "Time": "2026-01-01T10:05:00Z"},)", true, "> 1 │ here"},
      {3, 2, R"("Outcome": {"Report": "r", "Time": "2026-01-01T10:05:00Z"},)", false,
       "s.cpp was changed after the module was built: not shown (--any-source shows it)"},
      {2, 3, "", false, "> 1 │ here"},
      {7, 8, R"("Outcome": {"Report": "r", "Time": "2026-01-01T10:05:00Z"},)", false,
       "s.cpp was changed after the crash: not shown (--any-source shows it)"},
      {1, 0, "", false,
       "s.cpp may be another than was compiled: not shown (--any-source shows it)"},
      // A checksum tells for sure, whatever the times say; what is none is as if it were not there.
      {1, 0, "", false, "> 1 │ here", "md5:bc98d84673286ce1447eca1766f28504"},
      {1, 0, "", false, "> 1 │ here", "sha1:3b1626288afb32c53b9f9553dd4a14b96f233942"},
      {1, 0, "", false, "> 1 │ here",
       "sha256:"
       "c6006557cc52f5ddab8cb3cf6e69feec1cce3350c8d4628cc240872ad13c3c97"},
      {2, 3, "", false,
       "s.cpp is not the file that was compiled: not shown (--any-source shows it)",
       "md5:bc98d84673286ce1447eca1766f28500"},
      {2, 3, "", true, "> 1 │ here", "md5:bc98d84673286ce1447eca1766f28500"},
      {2, 3, "", false, "> 1 │ here", "md5:bc98d8"},
      {2, 3, "", false, "> 1 │ here", "sm3:bc98d84673286ce1447eca1766f28500"},
  };
  for (const auto& [sourceTime, moduleTime, facts, takesAny, expected, checksum] : kCases) {
    const auto write = [](const std::string& file, int minutes) {
      std::ofstream(file) << "here\n";
      Shell("touch -d '2026-01-01 10:0" + std::to_string(minutes) + " UTC' " + file);
    };
    write(source, sourceTime);
    if (moduleTime != 0) write(module, moduleTime);
    const auto document = ParseCrashDocument(
        "{"s + facts + R"("Exception": {"Thread": "1"}, "Threads": [{"ThreadNumber": 1, "Callstack":
        [{"ModuleName": "m", "SourceFileName": ")" +
            source + R"(", "SourceFileChecksum": ")" + checksum + R"(", "SourceLine": 1}]}],
        "LoadedModules": [{"ModuleName": "m", "Executable": ")" +
            (moduleTime == 0 ? "" : module) + "\"}]}",
        "x");
    ASSERT_TRUE(document) << document.GetError().Text().View();
    const std::string text = Printed(*document, {.takesAnySource = takesAny});
    EXPECT_NE(text.find("      "s + expected + '\n'), std::string::npos) << text << expected;
  }
}

TEST(ShowTest, HostileDocuments) {
  constexpr const char* kNoThreads =
      "\"x\": found JSON without an array \"Threads\", expected a resolved crash log.";
  const auto noJson = [](const std::string& place, const char* reason) {
    return "\"x\": found no JSON at " + place + " (" + reason + "), expected a resolved crash log.";
  };
  const struct {
    std::string json;
    std::string expected;
  } kCases[] = {
      {"", noJson("line 1, column 1", "The document is empty.")},
      {"[1]", kNoThreads},
      {R"({"Threads": {}})", kNoThreads},
      {R"({"Outcome": {"Report": "r\u0007", "Error": "none"}})",
       "Crash\n  Report       r\\x07\n  Unreadable   none\n"},
      {R"({"Outcome": {"Report": "r"}, "Damage": [{"Line": 3, "Expected": "}"},
           {"Line": 9, "Expected": "\u001b", "Cut": true}]})",
       "Crash\n  Damaged      line 3: }\n  Cut off      line 9: \\x1b\n"},
      {"{\"Threads\":\n  [}", noJson("line 2, column 4", "Invalid value.")},
      {"{\"Threads\": [\"\xff\"]}", noJson("line 1, column 15", "Invalid encoding in string.")},
      {std::string(1'000'000, '['), noJson("line 1, column 1000001", "Invalid value.")},
      {"{\"Threads\": " + std::string(100'000, '[') + std::string(100'000, ']') + "}", "Crash\n"},
      {R"({"Threads": []})"s + '\0' + "{}",
       noJson("line 1, column 16", "The document root must not be followed by other values.")},
      // Wrong kinds of values are as if they were not there.
      {R"({"Threads": [1, null, {"ThreadNumber": -1, "Callstack": [7, {"Address": "x"}],
           "Properties": [], "Registers": 3}], "LoadedModules": [{"IsExecutable": 1}, 2],
           "Exception": {"Thread": 5, "ExceptionText": null}, "ComputerInfo": "x"})",
       "Crash\n\nThread without a number\n   0\n"},
      // What would steer the terminal.
      {R"({"Threads": [{"ThreadNumber": 1, "Properties": {"ThreadName": "a\u001b[31m\nb",
           "\u202ek\u0000": "\u009b"}, "Callstack": [{"ModuleName": "m\r", "FunctionName":
           "f\u2066\u0007", "SourceFileName": "/dev/zero\u0000", "SourceLine": 1}]}],
           "Exception": {"Thread": "1", "Signal": "\t\u007f"}})",
       "Crash\n  Exception    Signal \\x7f\n\nThread 1  a\\x1b[31m\\x0ab  crashed\n"
       "  \\xe2\\x80\\xaek\\x00  \\xc2\\x9b\n"
       "→  0  m\\x0d  f\\xe2\\x81\\xa6\\x07  /dev/zero\\x00:1\n"},
      // Source files that must not be opened, or have no such line.
      {R"({"Threads": [{"ThreadNumber": 1, "Callstack": [{"SourceFileName": "/dev/zero",
           "SourceLine": 1}]}, {"ThreadNumber": 2, "Callstack": [{"SourceFileName": "/etc/passwd",
           "SourceLine": 18446744073709551615}]}], "Exception": {"Thread": "2"}})",
       "Crash\n\nThread 2  crashed\n→  0  /etc/passwd:18446744073709551615\n\n"
       "Thread 1\n   0  /dev/zero:1\n"},
      {R"({"Threads": [{"ThreadNumber": 1, "Callstack": [{"SourceFileName": "/dev/zero",
           "SourceLine": 1}]}], "Exception": {"Thread": "1"}})",
       "Crash\n\nThread 1  crashed\n→  0  /dev/zero:1\n"},
  };
  for (const auto& [json, expected] : kCases)
    EXPECT_EQ(Outcome(json), expected) << json.substr(0, 100);
}

bool IsPrintable(std::string_view text) { return SafeText(text) == text; }

TEST(ShowTest, DamagedDocumentsNeverReachTheTerminalRaw) {
  const std::string whole = Data("own_crash.json");
  for (std::size_t size = 0; size < whole.size(); ++size)
    ASSERT_FALSE(ParseCrashDocument(std::string_view(whole).substr(0, size), "x")) << size;
  std::size_t printed = 0;
  for (const char byte : {'"', '\0', '\x1b', '\xff', '9', '}'}) {
    for (std::size_t i = 0; i < whole.size(); ++i) {
      std::string damaged = whole;
      damaged[i] = byte;
      const auto document = ParseCrashDocument(damaged, "x");
      if (!document) {
        ASSERT_TRUE(IsPrintable(document.GetError().Text())) << i;
        continue;
      }
      ++printed;
      std::string text = Printed(*document, {.showsAll = true, .showsSource = false});
      std::erase(text, '\n');
      ASSERT_TRUE(IsPrintable(text)) << i << ' ' << text;
    }
  }
  EXPECT_GT(printed, whole.size() / 2);
}

TEST(ShowTest, TheThreadThatCrashedIsFound) {
  const auto thread = [](int number, const std::string& base, const char* module) {
    return "{\"ThreadNumber\": " + std::to_string(number) + ", \"Registers\": {\"fs_base\": \"" +
           base + "\"}, \"Callstack\": [{\"ModuleName\": \"" + module + "\"}]}";
  };
  const struct {
    const char* what;
    const char* exception;
    std::string threads;
    const char* first;  ///< how the first thread's line ends
  } kCases[] = {
      {"register over number", "0x7", thread(7, "0x8", "a") + ',' + thread(8, "0x0007", "a"),
       "Thread 8  crashed"},
      {"number, where no register fits", "7", thread(1, "", "a") + ',' + thread(7, "0x8", "a"),
       "Thread 7  crashed"},
      {"handler, where neither does", "0x9",
       thread(1, "", "a") + ',' + thread(2, "0x8", "crashhandler.so"), "Thread 2  crashed"},
      {"none", "", thread(1, "", "a") + ',' + thread(2, "", "crashhandler.so.1"), "Thread 1"},
      {"the first of an exception", "0x7z", thread(7, "0x7", "a"), "Thread 7  crashed"},
      {"a mark over all", "1", thread(1, "", "a") + R"(,{"ThreadNumber": 2, "Crashed": true})",
       "Thread 2  crashed"},
  };
  for (const auto& [what, exception, threads, first] : kCases) {
    const std::string text = Outcome("{\"Exception\": {\"Thread\": \""s + exception +
                                     "\"}, \"Threads\": [" + threads + "]}");
    EXPECT_EQ(text.substr(0, text.find('\n', 8)), "Crash\n\n"s + first) << what;
  }
}

TEST(FrameLineTest, NamesAreDemangled) {
  std::string nested = "_Z1fSt4pairIiiES_IS0_S0_E";  // doubles with every further pair
  for (int i = 1; i < 30; ++i) {
    const std::string reference = "S" + std::string(1, static_cast<char>('0' + i % 10)) + "_";
    nested += "S_I" + reference + reference + "E";
  }
  const struct {
    std::string name;
    std::string expected;
  } kCases[] = {
      {"_ZN5scene6UpdateEiPFvPvES0_ + 0x1c", "scene::Update(int, void (*)(void*), void*) + 0x1c"},
      {"_Z1fSt4pairIiiES_IS0_S0_E",
       "f(std::pair<int, int>, std::pair<std::pair<int, int>, "
       "std::pair<int, int> >)"},
      {nested, nested},
      {"_Z1f" + std::string(5000, 'i'), "_Z1f" + std::string(5000, 'i')},
      {"_Znot", "_Znot"},
      {"_Z1fv\0@"s, "f()\0@"s},
      {"main + 0x1", "main + 0x1"},
      {"", ""},
  };
  for (const auto& [name, expected] : kCases) EXPECT_EQ(Demangled(name), expected);
}

TEST(SafeTextTest, EscapesWhatSteersTerminals) {
  const struct {
    std::string text;
    std::string safe;
    std::size_t width;
  } kCases[] = {
      {"plain ~", "plain ~", 7},
      {"\t\x7f\x1b[0m", "\\x09\\x7f\\x1b[0m", 15},
      {"ü€漢😀", "ü€漢😀", 6},
      {"e\u0301", "e\u0301", 1},
      {"\xc2\x9b|\u200f|\u2028|\u202e|\u2069|\ufeff|\U000e0041",
       "\\xc2\\x9b|\\xe2\\x80\\x8f|\\xe2\\x80\\xa8|\\xe2\\x80\\xae|\\xe2\\x81\\xa9|\\xef\\xbb\\xbf|"
       "\\xf3\\xa0\\x81\\x81",
       90},
      {"\x80|\xc3|\xc0\xaf|\xed\xa0\x80|\xf4\x90\x80\x80|\xe2\x82",
       "\\x80|\\xc3|\\xc0\\xaf|\\xed\\xa0\\x80|\\xf4\\x90\\x80\\x80|\\xe2\\x82", 57},
  };
  for (const auto& [text, safe, width] : kCases) {
    EXPECT_EQ(SafeText(text), safe);
    EXPECT_EQ(TextWidth(safe), width) << safe;
  }
}

TEST(SafeTextTest, ShortensToColumns) {
  const struct {
    std::size_t width;
    const char* start;
    const char* end;
  } kCases[] = {{7, "a漢b字c", "a漢b字c"}, {6, "a漢b…", "…b字c"}, {5, "a漢b…", "…b字c"},
                {4, "a漢…", "…字c"},       {2, "a…", "…c"},       {1, "…", "…"}};
  for (const auto& [width, start, end] : kCases) {
    EXPECT_EQ(Shortened("a漢b字c", width), start) << width;
    EXPECT_EQ(Shortened("a漢b字c", width, true), end) << width;
  }
}

}  // namespace
}  // namespace tarvo::toolkit
