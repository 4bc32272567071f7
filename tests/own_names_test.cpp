// Reports of the own capture whose program, library, thread and variables have names that reports
// are not made for: once normalized they come back from the module's reader, each to the byte.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "crashlog/reading/report_reader.h"
#include "tarvo/report/normalize.h"
#include "toolkit/report/spelling.h"

namespace {

using namespace std::string_literals;
using tarvo::DataArray;
using tarvo::DataDictionary;
using tarvo::String;
using Texts = std::vector<std::string>;

const Texts kNames = {"plain",
                      ".prog",
                      "-prog",
                      "+prog",
                      "#prog",
                      "(prog)",
                      "'p",
                      "\"p\"",
                      "~p",
                      "{prog",
                      "}prog",
                      "}",
                      "{",
                      "Registers",
                      "Variables",
                      "Registers.so",
                      "a:b",
                      "a: b",
                      ":",
                      "a::b (c)",
                      "12",
                      "7z",
                      "12 x",
                      "[0x1]",
                      "[x",
                      " leading",
                      "\ttab",
                      "trailing ",
                      "two words",
                      "a\nb",
                      "a\n\nb",
                      "\nfirst",
                      "last\n",
                      "a\r",
                      "a\rb",
                      "=",
                      "a=b",
                      "a = b",
                      "Spelled_",
                      "Spelled__2eprog",
                      "Call_Stack_Thread_1",
                      "Call_Stacks",
                      "ModuleName",
                      "ModuleName = x",
                      "unknown",
                      "?",
                      "?x",
                      "x (SP: 0x1, PC: 0x2)",
                      "caf\xC3\xA9",
                      "\xFF\xFE",
                      "@",
                      "\\x",
                      "*|&;,",
                      "(nil)",
                      "\x1b[2J",
                      "a]b",
                      "a [0x1]",
                      "PC: (nil))"};

std::string Frame(const std::string& module, const std::string& address) {
  return "\t\t\t" + module + "(f+0x1) [0x" + address + "]:\t(nil) (SP: 0x" + address +
         ", PC: (nil))\n";
}

std::string Module(const std::string& name, const std::string& path, const std::string& base) {
  return "\t\tModuleName = " + name + "\n\t\t{\n\t\t\tExecutable = " + path +
         "\n\t\t\tBaseAddress = " + base + "\n\t\t\tBaseSize = 9\n\t\t\tBuild = 7\n\t\t}\n";
}

/// To the letter as the capture writes it. A thread's name ends at its first blank there, and a
/// variable's value holds no line end.
std::string Report(const std::string& name, const std::string& thread, const std::string& value) {
  return "TARVO_Crash_Report\n{\n\tCall_Stacks\n\t{\n\t\tCall_Stack_Thread_5\n\t\t{\n" +
         Frame(name, "1010") + Frame(name, "9010") + Frame("libc.so.6", "a010") +
         "\t\t\tRegisters\n\t\t\t{\n\t\t\t\trax: 0x01 rip: 0x02 fop: 0x03 rip: 0x04\n"
         "\t\t\t\tst5: 0x05 st6: 0x06 st7: 0x07 \t\t\t}\n\t\t\tVariables\n\t\t\t{\n"
         "\t\t\t\tThreadName = " +
         thread + "\n\t\t\t\tA:b(c) = " + value + "\n\t\t\t\tSpelled_x = " + value +
         "\n\t\t\t\tProgramFile = /opt/" + name +
         "\n\n\t\t\t}\n\t\t}\n\t}\n\tLoaded_Modules\n\t{\n" + Module("unknown", "", "0x1000") +
         Module(name, "/opt/" + name, "0x9000") + Module("libc.so.6", "/lib/libc.so.6", "0xa000") +
         "\t}\n\tException\n\t{\n\t\tThread = 0x5\n\t}\n}\n";
}

/// Every key and value below `key` of each dictionary in `array`, or of `array` itself.
Texts Values(const DataDictionary& dictionary) {
  Texts texts;
  for (const auto& [key, value] : dictionary) {
    const auto* text = value.As<String>();
    const auto* number = value.As<std::uint64_t>();
    texts.push_back(key.ToStdString() + "|" +
                    (text != nullptr     ? text->ToStdString()
                     : number != nullptr ? std::to_string(*number)
                                         : "true"));
  }
  return texts;
}

Texts ValuesOfAll(const DataDictionary& parent, const char* key) {
  Texts all;
  for (const auto& element : *parent.FindAs<DataArray>(key))
    for (std::string& text : Values(*element.As<DataDictionary>())) all.push_back(std::move(text));
  return all;
}

TEST(OwnNamesTest, ComeBackToTheByte) {
  for (const std::string& name : kNames) {
    const std::string thread = name.substr(0, std::min(name.find_first_of(" \t\r\n"), 15UL));
    std::string value = name;
    for (char& c : value)
      if (c == '\n' || c == '\r') c = ' ';
    const std::string report = Report(name, thread, value);
    const std::string normalized = tarvo::report::Normalized(report);
    auto tree = tarvo::crashhandler::ParseReport(normalized);
    ASSERT_TRUE(tree) << testing::PrintToString(name) << tree.GetError().Text().View()
                      << normalized;
    tarvo::report::RestoreSpelled(*tree);
    const auto& thread5 = *(*tree->FindAs<DataArray>("Threads"))[0].As<DataDictionary>();
    SCOPED_TRACE(testing::PrintToString(name) + "\n" + normalized);
    EXPECT_EQ(std::ranges::count(report, '\n'), std::ranges::count(normalized, '\n'));
    EXPECT_EQ(ValuesOfAll(thread5, "Callstack"),
              (Texts{"ModuleName|" + name, "FunctionName|f + 0x1", "Address|4112",
                     "ModuleName|" + name, "FunctionName|f + 0x1", "Address|36879",
                     "ModuleName|libc.so.6", "FunctionName|f + 0x1", "Address|40975"}));
    EXPECT_EQ(Values(*thread5.FindAs<DataDictionary>("Registers")),
              (Texts{"rax|0x01", "rip|0x02", "fop|0x03", "fpu_rip|0x04", "st5|0x05", "st6|0x06",
                     "st7|0x07"}));
    EXPECT_EQ(Values(*thread5.FindAs<DataDictionary>("Properties")),
              (Texts{"ThreadName|" + thread, "A:b(c)|" + value, "Spelled_x|" + value,
                     "ProgramFile|/opt/" + name}));
    const std::string rest = "BaseSize|9", build = "Build|7";
    EXPECT_EQ(ValuesOfAll(*tree, "LoadedModules"),
              (Texts{"ModuleName|" + name, "Executable|", "BaseAddress|4096", rest, build,
                     "IsExecutable|true", "ModuleName|" + name, "Executable|/opt/" + name,
                     "BaseAddress|36864", rest, build, "ModuleName|libc.so.6",
                     "Executable|/lib/libc.so.6", "BaseAddress|40960", rest, build}));
  }
}

}  // namespace
