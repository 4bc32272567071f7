// The rules of the format, a table row each: a report, and the whole tree or error it gives.

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <string_view>

#include "crashlog/reading/report_reader.h"
#include "tarvo/format.h"
#include "tree_text.h"

namespace tarvo::crashhandler {
namespace {

constexpr std::string_view kLinuxMark =
    R"("ComputerInfo": {"OS_Type": "PALLADO_Crash_Report_LINUX"}})";

/// The tree without the mark of a Linux report, or the error's class, without the part that all
/// classes share, and message.
std::string Outcome(std::string_view report) {
  const Result<DataDictionary> tree = ParseReport(report);
  if (!tree) {
    EXPECT_EQ(tree.GetError().Where().path, "crashhandler.module/source/crashlog");
    EXPECT_GT(tree.GetError().Where().line, 0u);
    return Format("@: @", tree.GetError().ClassId().substr(sizeof "net.tarvo"),
                  tree.GetError().Message())
        .ToStdString();
  }
  std::string text = TreeLine(*tree);
  if (!text.ends_with(kLinuxMark)) return text;
  text.erase(text.size() - kLinuxMark.size());
  if (text.ends_with(',')) text.pop_back();
  return text + "}";
}

struct Rule {
  const char* name;
  std::string_view report;
  std::string_view outcome;
};

void PrintTo(const Rule& rule, std::ostream* out) { *out << rule.name; }

class Rules : public testing::TestWithParam<Rule> {};

constexpr auto kName = [](const testing::TestParamInfo<Rule>& rule) { return rule.param.name; };

/// The rules of what stands inside of a report's braces.
class Bodies : public Rules {};

using std::string_view_literals::operator""sv;

TEST_P(Rules, HoldForWholeReports) { EXPECT_EQ(Outcome(GetParam().report), GetParam().outcome); }

TEST_P(Bodies, HoldForEveryLineEnd) {
  const std::string report = "TARVO_Crash_Report\n{\n" + std::string(GetParam().report) + "\n}\n";
  EXPECT_EQ(Outcome(report), GetParam().outcome);
  std::string windows;
  for (const char c : report) windows += c == '\n' ? "\r\n" : std::string(1, c);
  EXPECT_EQ(Outcome(windows), GetParam().outcome);
}

constexpr Rule kFrame[] = {
    {"Empty", "", "error: Expected identifier"},
    {"StartsWithNumber", "1TARVO_Crash_Report {}", "error: Expected identifier"},
    {"StartsWithBrace", "{}", "error: Expected identifier"},
    {"OtherWord", "Crash_Report\n{\n}", "error: Wrong type of report: Crash_Report"},
    {"OtherCase", "tarvo_Crash_Report {}", "error: Wrong type of report: tarvo_Crash_Report"},
    {"NoBrace", "TARVO_Crash_Report\n\n=", "error: Expected { in line 3, found = \"=\""},
    {"OnlyHeader", "TARVO_Crash_Report",
     "error: Expected { in line 1, found end of file \"end of file\""},
    {"Smallest", "TARVO_Crash_Report{}", "{}"},
    {"Windows", "PALLADO_Crash_Report_WINDOWS{}", "{}"},
    {"Macos", "PALLADO_Crash_Report_MACOS{}", "{}"},
    {"Linux", "PALLADO_Crash_Report_LINUX{}", "{}"},
    {"ByteOrderMark", "\xEF\xBB\xBFTARVO_Crash_Report{}", "{}"},
    {"NoEnd", "TARVO_Crash_Report{Exception{", R"({"Exception": {}})"},
    {"TextBehindTheEnd", "TARVO_Crash_Report{} } = 5", "{}"},
    {"CarriageReturnInsideALine", "TARVO_Crash_Report{Exception{a = b\rc\r\n}",
     R"({"Exception": {"a": "b\rc"}})"},
    {"NulIsACharacter", "TARVO_Crash_Report{Exception{a = b\0c\n}"sv,
     R"({"Exception": {"a": "b\u0000c"}})"},
};
INSTANTIATE_TEST_SUITE_P(Frame, Rules, testing::ValuesIn(kFrame), kName);

constexpr Rule kSections[] = {
    {"LowerCase", "exception {}", "error: ParseBugReport found an error in line 3 with exception"},
    {"Number", "\n12 {}",
     "error: ParseBugReport found an error in line 4 with 12 and unknown symbol type"},
    {"String", R"("a { b" {})",
     "error: ParseBugReport found an error in line 3 with \"a { b\" and unknown symbol type"},
    {"StringEndsWithItsLine", "\"a\nb\" {}",
     "error: ParseBugReport found an error in line 3 with \"a and unknown symbol type"},
    {"NonAscii", "\xC3\xBC {}",
     "error: ParseBugReport found an error in line 3 with \xC3\xBC and unknown symbol type"},
    {"Again", "Exception { a = 1\n b = 2\n } Exception { c = 3\n }",
     R"({"Exception": {"c": "3"}})"},
    {"ComputerInfoKept", "ComputerInfo {}", R"({"ComputerInfo": {}})"},
    {"KeyAgain", "Exception { a = 1\n b = 2\n a = 3\n }", R"({"Exception": {"a": "3","b": "2"}})"},
    {"EqualsOnTheNextLine", "Exception { a \n = 1 \n b =\n}",
     R"({"Exception": {"a": "1 ","b": ""}})"},
    {"NoEquals", "Exception {\n\nTwo Words = 1\n}",
     "error: Expected = in line 5, found identifier \"Words\""},
    {"ExceptionToken", "Exception {\n\"x\" = 1\n}",
     "error: ParseException found an error in line 4 with \"x\""},
    {"ComputerInfoToken", "ComputerInfo {\n  7 = 1\n}",
     "error: ParseComputerInfo found an error in line 4 with 7"},
    {"ApplicationInfoToken", "ApplicationInfo {\n: x\n}",
     "error: ParseApplicationInfo found an error in line 4 with :"},
    {"ApplicationInfoNoSeparator", "ApplicationInfo {\na b\n}",
     "error: ParseApplicationInfo found an error in line 4"},
    {"ApplicationInfoForms",
     "ApplicationInfo {\n"
     "Computer \t Name: x = y\nComputer Name=z\nVersion = 15.6 at 10:20\n"
     "Three Word Key :v \nGr\xC3\xB6\xC3\x9F"
     "e:\t 5\na:\n}",
     R"({"ApplicationInfo": {"ComputerName": "z","Version= 15.6 at 10": "20",)"
     "\"ThreeWord Key \": \"v \",\"Gr\xC3\xB6\xC3\x9F"
     R"(e": "5","a": ""}})"},
};
INSTANTIATE_TEST_SUITE_P(Sections, Bodies, testing::ValuesIn(kSections), kName);

constexpr Rule kThreads[] = {
    {"None", "Call_Stacks {}", R"({"Threads": []})"},
    {"EmptyThread", "Call_Stacks { Call_Stack_Thread_12 {} }",
     R"({"Threads": [{"ThreadNumber": 12,"Callstack": []}]})"},
    {"NoUnderscore", "Call_Stacks {\nCall_Stack_Thread {} }",
     "error: ParseThreads found an error in line 4"},
    {"NoThread", "Call_Stacks {\n(", "error: ParseThreads found an error in line 4"},
    {"NoNumber", "Call_Stacks { Call_Stack_Thread_ {} }",
     "error.conversion: Could not convert \"\" in line 3 into a number: expected decimal digits of "
     "at most 64 bits"},
    {"NumberAndMore", "Call_Stacks { Call_Stack_Thread_12x {} }",
     "error.conversion: Could not convert \"12x\" in line 3 into a number: expected decimal digits "
     "of at most 64 bits"},
    {"LongNumber", "Call_Stacks { Call_Stack_Thread_18446744073709551616 {} }",
     "error.conversion: Could not convert \"18446744073709551616\" in line 3 into a number: "
     "expected decimal digits of "
     "at most 64 bits"},
    {"BlockToken", "Call_Stacks { Call_Stack_Thread_1 {\n\n(x) }",
     "error: ParseCallstack found an error in line 5"},
    {"Variables",
     "Call_Stacks { Call_Stack_Thread_1 { Variables {\nThreadName   = main\nA b c=\n"
     "Arg|HackForMoltwick =\nx: y = z = w\n} } }",
     R"({"Threads": [{"ThreadNumber": 1,"Properties": {"ThreadName": "main","Ab c": "",)"
     R"("Arg|HackForMoltwick ": "","x: y ": "z = w"},"Callstack": []}]})"},
    {"VariablesColon", "Call_Stacks { Call_Stack_Thread_1 { Variables {\na: b\n} } }",
     "error: ParseVariables found an error in line 4"},
    {"VariablesToken", "Call_Stacks { Call_Stack_Thread_1 { Variables {\n- b\n} } }",
     "error: ParseVariables found an error in line 4 with type other operator"},
    {"BlocksAgain",
     "Call_Stacks { Call_Stack_Thread_1 { Registers { a=1\n} Variables { b=2\n}\n"
     "Registers { c=3\n} Variables {} } }",
     R"({"Threads": [{"ThreadNumber": 1,"Registers": {"c": "3"},"Properties": {},)"
     R"("Callstack": []}]})"},
};
INSTANTIATE_TEST_SUITE_P(Threads, Bodies, testing::ValuesIn(kThreads), kName);

constexpr Rule kScenes[] = {
    {"OtherWord", "Opened Doors {}", "error: "},
    {"NoWord", "Opened {}", "error: Expected identifier in line 3, found { \"{\""},
    {"Token", "Opened Scenes\n;", "error: ParseOpenedScenes found an error in line 4 with ;"},
    {"Empty", "Opened Scenes {}", R"({"Documents": []})"},
    {"Block", "Opened Scenes {\na = /x = y\nMy Scene=\n}",
     R"({"Documents": [{"DocumentName": "a","DocumentPath": "/x = y"},)"
     R"({"DocumentName": "MyScene","DocumentPath": ""}]})"},
    {"LineToken", "Opened Scenes {\n/x\n}",
     "error: ParseOpenedScenes found an error in line 4 with /"},
    {"LineNoEquals", "Opened Scenes {\na b\n}", "error: ParseOpenedScenes found an erro in line 4"},
    {"EqualsEmpty", "Opened Scenes = \t\nException {}", R"({"Documents": [],"Exception": {}})"},
    {"EqualsPath", "Opened Scenes = My Scene = /x\n",
     R"({"Documents": [{"DocumentName": "My Scene","DocumentPath": "/x"}]})"},
    {"EqualsName", "Opened Scenes =\tMy Scene \n",
     R"({"Documents": [{"DocumentName": "My Scene"}]})"},
};
INSTANTIATE_TEST_SUITE_P(Scenes, Bodies, testing::ValuesIn(kScenes), kName);

constexpr Rule kModules[] = {
    {"None", "Loaded_Modules {}", R"({"LoadedModules": []})"},
    {"FirstIsExecutable",
     "Loaded_Modules { ModuleName = a b\n{ IsExecutable = no\nBuild = R-1 \n }\n"
     "ModuleName =\n{ IsExecutable = yes\n } }",
     R"({"LoadedModules": [{"ModuleName": "a b","IsExecutable": true,"Build": "R-1 "},)"
     R"({"ModuleName": "","IsExecutable": "yes"}]})"},
    {"Numbers",
     "Loaded_Modules { ModuleName = a\n{ BaseAddress = 0xFFFFffffFFFFffff \n"
     "BaseSize =\t18446744073709551615\n }\n"
     "ModuleName = b\n{ BaseAddress = (nil)\nBaseSize = 0x1000\nbasesize = x\n} }",
     R"({"LoadedModules": [{"ModuleName": "a","BaseAddress": 18446744073709551615,)"
     R"("BaseSize": 18446744073709551615,"IsExecutable": true},)"
     R"({"ModuleName": "b","BaseAddress": 0,"BaseSize": 4096,"basesize": "x"}]})"},
    {"NoPrefix", "Loaded_Modules {\nModuleName = a\n{\nBaseAddress = 400000\n} }",
     "error.conversion: Could not convert \"400000\" in line 6 into a number: expected \"0x\" and "
     "hexadecimal digits "
     "of at most 64 bits"},
    {"LongAddress", "Loaded_Modules { ModuleName = a\n{ BaseAddress = 0x10000000000000000\n} }",
     "error.conversion: Could not convert \"0x10000000000000000\" in line 4 into a number: "
     "expected \"0x\" and "
     "hexadecimal digits of at most 64 bits"},
    {"NegativeSize", "Loaded_Modules { ModuleName = a\n{ BaseSize = -1\n} }",
     "error.conversion: Could not convert \"-1\" in line 4 into a number: expected decimal digits "
     "of at most 64 bits"},
    {"SnapshotNote", "Loaded_Modules { CreateToolhelp32Snapshot } = {\n}",
     R"({"LoadedModules": []})"},
    {"OtherWord", "Loaded_Modules {\nModule = a\n}",
     "error: ParseLoadedModules found an error in line 4 with Module"},
    {"NoBlock", "Loaded_Modules { ModuleName = a {}\n}",
     "error: Expected { in line 4, found } \"}\""},
    {"BlockToken", "Loaded_Modules { ModuleName = a\n{\n, }",
     "error: ParseModuleInfo found an error in line 5 with ,"},
};
INSTANTIATE_TEST_SUITE_P(Modules, Bodies, testing::ValuesIn(kModules), kName);

constexpr Rule kCriticalLog[] = {
    {"Empty", "Critical_Log {}", R"({"CriticalLog": []})"},
    {"RawLines",
     "Critical_Log {on the brace's line\n\t \"open { # 'x \n\n \t\n= } a\n"
     "\xC3\xBC\x01 Exception {\n12 a:b\n } Exception {}",
     R"({"CriticalLog": ["on the brace's line","\"open { # 'x ","= } a",)"
     "\"\xC3\xBC\\u0001 Exception {\",\"12 a:b\"],\"Exception\": {}}"},
};
INSTANTIATE_TEST_SUITE_P(CriticalLog, Bodies, testing::ValuesIn(kCriticalLog), kName);

// --- Frames and registers: the lines of one thread -----------------------------------------------

class Frames : public Rules {};
class Registers : public Rules {};

/// The outcome of a report whose one thread holds `lines`, without what stands around its own part.
std::string ThreadOutcome(std::string_view lines, std::string_view before, std::string_view after) {
  std::string text = Outcome("TARVO_Crash_Report{Call_Stacks{Call_Stack_Thread_1{\n" +
                             std::string(lines) + "\n}}}");
  const std::string start = R"({"Threads": [{"ThreadNumber": 1,)" + std::string(before);
  const std::string end = std::string(after) + "}]}";
  if (text.starts_with(start) && text.ends_with(end) && text.size() >= start.size() + end.size())
    text = text.substr(start.size(), text.size() - start.size() - end.size());
  return text;
}

TEST_P(Frames, AreReadFromOneLine) {
  const std::string frame = ThreadOutcome(GetParam().report, "\"Callstack\": [{", "}]");
  EXPECT_EQ(frame, GetParam().outcome);
}

constexpr Rule kFrames[] = {
    {"Usual", "lib my-x.so.1:\tf(int) + 0x1f (SP: 0x10, PC: 0xfF)",
     R"("ModuleName": "lib my-x.so.1","FunctionName": "f(int) + 0x1f","Address": 255)"},
    {"UnknownModule", "?:\t? (SP: 0x10, PC: 0x20)",
     R"("ModuleName": "?","FunctionName": "?","Address": 32)"},
    {"NonAsciiModule", "\xC3\xBC.so: f (SP: 0x10, PC: 0x20)",
     "\"ModuleName\": \"\xC3\xBC.so\",\"FunctionName\": \"f\",\"Address\": 32"},
    {"EmptyModule", ":\tstd::f (SP: 0x10, PC: 0x20)", R"("FunctionName": "std::f","Address": 32)"},
    {"NoModule", "[0x7f00]:\t(nil) (SP: 0x7f00, PC: (nil))", R"_("FunctionName": "(nil)")_"},
    {"NullProgramCounter", "a(f+0x9) [0x5]:\t(nil) (SP: 0x5, PC: (nil))",
     R"_("ModuleName": "a(f+0x9) [0x5]","FunctionName": "(nil)")_"},
    {"NullStackPointer", "a:\t(nil) (SP: (nil), PC: (nil)) ",
     R"_("ModuleName": "a","FunctionName": "(nil)")_"},
    {"NumberAndColon", "0x401136: f (SP: 0x10, PC: 0x20)", R"("FunctionName": "f","Address": 32)"},
    {"NumberAndFunction", "0x401136 std::f (SP: 0x10, PC: 0x20)",
     R"("FunctionName": "std::f","Address": 32)"},
    {"NumberAndModule", "12  a.so:\tf (SP: 0x10, PC: 0x20)",
     R"("ModuleName": "a.so","FunctionName": "f","Address": 32)"},
    {"NumberAndDash", "12 - a.so: f (SP: 0x10, PC: 0x20)",
     R"("FunctionName": "- a.so: f","Address": 32)"},
    {"NumberInTheModule", "7z.dll:\tf (SP: 0x10, PC: 0x20)",
     R"("ModuleName": "7z.dll","FunctionName": "f","Address": 32)"},
    {"ModuleAndNumber", "a b.so 0x1136 f + 2 (SP: 0x10, PC: 0x20)",
     R"("ModuleName": "a b.so","FunctionName": "0x1136 f + 2","Address": 32)"},
    {"ModuleAndDash", "a.so - 12: f PC: 0x20)",
     R"_("ModuleName": "a.so - 12","FunctionName": "f PC: 0x20)","Address": 32)_"},
    {"ModuleOnly", "a.so b", R"("ModuleName": "a.so b")"},
    {"NoFunction", "a.so:\t (SP: 0x10, PC: 0x20)", R"("ModuleName": "a.so","Address": 32)"},
    {"NoStackPointer", "a.so: \t f \t", R"("ModuleName": "a.so","FunctionName": "f")"},
    {"LongAddress", "a: f (SP: 0x10, PC: 0x10000000000000000)",
     R"("ModuleName": "a","FunctionName": "f")"},
    {"AddressAndMore", "a: f (SP: 0x10, PC: 0x20g)", R"("ModuleName": "a","FunctionName": "f")"},
    {"NoDigits", "a: f (SP: 0x10, PC: 0x)", R"("ModuleName": "a","FunctionName": "f")"},
    {"NothingAtAll", ": ", ""},
    {"KeywordsInTheLine", "Registers_x: Variables { (SP: 0x10, PC: 0x20)",
     R"("ModuleName": "Registers_x","FunctionName": "Variables {","Address": 32)"},
};
INSTANTIATE_TEST_SUITE_P(Lines, Frames, testing::ValuesIn(kFrames), kName);

TEST_P(Registers, AreReadInPairs) {
  const std::string block = "Registers {\n" + std::string(GetParam().report);
  const std::string pairs = ThreadOutcome(block, "\"Registers\": {", "},\"Callstack\": []");
  EXPECT_EQ(pairs, GetParam().outcome);
}

constexpr Rule kRegisters[] = {
    {"FourOnALine", "\t\ta: 0x1 b: 0x2 c: 0x3 d: 0x4\n\n}",
     R"("a": "0x1","b": "0x2","c": "0x3","d": "0x4")"},
    {"TrailingBlanks", "a: 0x1 \t \n}", R"("a": "0x1")"},
    {"BraceOnTheLastLine", "a: 0x1 b: 0x2 \t\t} \nRegisters {\nc: 0x3 }\n", R"("c": "0x3")"},
    {"BraceAsAValue", "a: }\n}", R"("a": "}")"},
    {"EqualsFirst", "a=0x1 b: 2 c = 0x3 d:4\n}", R"("a": "0x1","b: 2 c ": "0x3","d": "4")"},
    {"Again", "rip: 0x1\nrax: 0x2\nrip: 0x3\n}", R"("rip": "0x1","rax": "0x2")"},
    {"BlanksInTheName", "st 0 x: 0x1\n}", R"("st0 x": "0x1")"},
    {"NoSeparator", "a: 0x1\nb 0x2\n}", "error: ParseRegisters found an erro in line 4"},
    {"NoSeparatorLater", "a: 0x1 } b\n}", "error: ParseRegisters found an erro in line 3"},
    {"Token", "1: 0x1\n}",
     "error: ParseRegisters found an error in line 3 with symbol type number"},
};
INSTANTIATE_TEST_SUITE_P(Lines, Registers, testing::ValuesIn(kRegisters), kName);

}  // namespace
}  // namespace tarvo::crashhandler
