#include "tarvo/report/normalize.h"

#include <gtest/gtest.h>

#include <string>

namespace tarvo::report {
namespace {

/// A frame's line as the capture writes it.
std::string Own(const std::string& text, const std::string& address) {
  return "\t\t\t" + text + " [0x" + address + "]:\t(nil) (SP: 0x" + address + ", PC: (nil))\n";
}

/// The same normalized, with another program counter where it is adjusted.
std::string Plain(const std::string& text, const std::string& address, const std::string& counter) {
  return "\t\t\t" + text + " (SP: 0x" + address + ", PC: 0x" + counter + ")\n";
}

const std::string kThreadEnd =
    "\t\t\tRegisters\n\t\t\t{\n\t\t\t\trax: 0x1 st7: 0x2 \t\t\t}\n"
    "\t\t\tVariables\n\t\t\t{\n\t\t\t\tThreadName = a\n\t\t\t\tTask = f {g} [0x1]:\t(nil) (SP: "
    "0x1, "
    "PC: (nil))\n\n\t\t\t}\n\t\t}\n";

std::string OwnReport(const std::string& frames, const std::string& modules) {
  return "TARVO_Crash_Report\n{\n\tCall_Stacks\n\t{\n" + frames + "\t}\n\tLoaded_Modules\n\t{\n" +
         modules + "\t}\n\tException\n\t{\n\t\tAddress = (nil)\n\t}\n}\n";
}

std::string Thread(const std::string& frames) {
  return "\t\tCall_Stack_Thread_12\n\t\t{\n" + frames + kThreadEnd;
}

std::string Module(const std::string& name, const std::string& path, const std::string& base,
                   const std::string& build = {}) {
  return "\t\tModuleName = " + name + "\n\t\t{\n\t\t\tExecutable = " + path +
         "\n\t\t\tBaseAddress = " + base + "\n\t\t\tBaseSize = 9\n" +
         (build.empty() ? "" : "\t\t\tBuild = " + build + "\n") + "\t\t}\n";
}

TEST(NormalizeTest, TakesTheFramesOfOwnReportsApart) {
  const std::string waiting =
      Thread(Own("libc.so.6(pause+0x32)", "7f32") +                                     //
             Own("libc.so.6(pause+0x32)", "7f32") + Own("a.so(_ZN1a1bEv+0)", "5010") +  //
             Own("a.so(+0x20)", "5020") +                                               //
             Own("a.so()", "5030") +                                                    //
             Own("a(1).so(f+0x4)", "5040"));
  const std::string crashing =
      Thread(Own("libc.so.6(syscall+0x19)", "7f19") + Own("crashhandler.so(+0x85e0)", "c5e0") +
             Own("libtarvo.so.1(+0x1)", "7001") + Own("libc.so.6(+0x3c050)", "7050") +  //
             Own("a.so(Crash+0xe)", "500e") +                                           //
             Own("a.so(Crash+0xe)", "500e"));
  // A thread of the module's own: what follows its frames is no trampoline.
  const std::string working =
      Thread(Own("crashhandler.so(Work+0x1)", "c001") + Own("libc.so.6(qsort+0x2)", "7002") +  //
             Own("a.so(Sort+0x3)", "5003"));
  // What was called was no code, so that the capture begins with the caller.
  const auto called = [](const std::string& frames) {
    std::string thread = Thread(frames);
    return thread.replace(thread.find("Task = "), 0, "Fault_rip = 0x0000000000000000\n\t\t\t\t");
  };
  const std::string wild = called(Own("crashhandler.so(+0x1)", "c001") +
                                  Own("libc.so.6(+0x3c050)", "7050") + Own("a.so(f+0x1)", "5001"));
  // What was called is a frame too, where the capture walks the stack itself.
  const std::string null =
      called(Own("crashhandler.so(+0x1)", "c001") + Own("libc.so.6(+0x3c050)", "7050") +
             "\t\t\t[(nil)]:\t(nil) (SP: (nil), PC: (nil))\n" + Own("a.so(f+0x1)", "5001"));
  const std::string modules = Module("a.so", "/opt/a.so", "0x5000", "7");
  const std::string expected =
      OwnReport(Thread(Plain("libc.so.6:\tpause + 0x32", "7f32", "7f32") +
                       Plain("libc.so.6:\tpause + 0x32", "7f32", "7f32") +
                       Plain("a.so:\t_ZN1a1bEv + 0x0", "5010", "500f") +
                       Plain("a.so:\t+ 0x20", "5020", "501f") + Plain("a.so:\t?", "5030", "502f") +
                       Plain("a(1).so:\tf + 0x4", "5040", "503f")) +
                    Thread(Plain("libc.so.6:\tsyscall + 0x19", "7f19", "7f19") +
                           Plain("crashhandler.so:\t+ 0x85e0", "c5e0", "c5df") +
                           Plain("libtarvo.so.1:\t+ 0x1", "7001", "7000") +
                           Plain("libc.so.6:\t+ 0x3c050", "7050", "7050") +
                           Plain("a.so:\tCrash + 0xe", "500e", "500e") +
                           Plain("a.so:\tCrash + 0xe", "500e", "500d")) +
                    Thread(Plain("crashhandler.so:\tWork + 0x1", "c001", "c001") +
                           Plain("libc.so.6:\tqsort + 0x2", "7002", "7001") +
                           Plain("a.so:\tSort + 0x3", "5003", "5002")) +
                    called(Plain("crashhandler.so:\t+ 0x1", "c001", "c001") +
                           Plain("libc.so.6:\t+ 0x3c050", "7050", "7050") +
                           Plain("a.so:\tf + 0x1", "5001", "5000")) +
                    called(Plain("crashhandler.so:\t+ 0x1", "c001", "c001") +
                           Plain("libc.so.6:\t+ 0x3c050", "7050", "7050") +
                           Plain(":\t?", "0", "0") + Plain("a.so:\tf + 0x1", "5001", "5000")),
                modules);
  const std::string report = OwnReport(waiting + crashing + working + wild + null, modules);
  EXPECT_EQ(Normalized(report, ReturnAddressAdjustment::OwnReports), expected);
  EXPECT_EQ(Normalized(report, ReturnAddressAdjustment::AllReports), expected);
}

TEST(NormalizeTest, NamesTheProgramAndGivesItTheBuildThatAllShare) {
  struct Case {
    const char* name;
    std::string modules;
    std::string expected;
  };
  const std::string frames = Thread(Own("b.so(+0x1)", "9001") + Own("demo(main+0x2)", "1002") +
                                    Own("other(main+0x2)", "1001") + Own("demo(+0x3)", "1003"));
  const Case cases[] = {
      {"one build",
       Module("unknown", "", "0x1000") + Module("unknown", "linux-vdso.so.1", "0x8000") +
           Module("b.so", "/b.so", "0x9000", "7") + Module("c.so", "/c.so", "0xa000"),
       Module("demo", "", "0x1000", "7") + Module("linux-vdso.so.1", "linux-vdso.so.1", "0x8000") +
           Module("b.so", "/b.so", "0x9000", "7") + Module("c.so", "/c.so", "0xa000")},
      {"two builds",
       Module("unknown", "", "(nil)") + Module("b.so", "/b.so", "0x9000", "7") +
           Module("c.so", "/c.so", "0xa000", "8"),
       Module("demo", "", "(nil)") + Module("b.so", "/b.so", "0x9000", "7") +
           Module("c.so", "/c.so", "0xa000", "8")},
      {"a build of its own",
       Module("unknown", "", "0x1000", "6") + Module("b.so", "/b", "0x2", "7"),
       Module("demo", "", "0x1000", "6") + Module("b.so", "/b", "0x2", "7")},
      {"no frame in it", Module("unknown", "", "0x2000") + Module("b.so", "/b.so", "0x9000", "7"),
       Module("unknown", "", "0x2000", "7") + Module("b.so", "/b.so", "0x9000", "7")},
      {"a name of its own", Module("x", "/x", "0x1000") + Module("b.so", "/b.so", "0x9000", "7"),
       Module("x", "/x", "0x1000") + Module("b.so", "/b.so", "0x9000", "7")},
  };
  const auto modulesOf = [](const std::string& report) {
    return report.substr(report.find("\tLoaded_Modules"));
  };
  for (const Case& c : cases)
    EXPECT_EQ(
        modulesOf(Normalized(OwnReport(frames, c.modules), ReturnAddressAdjustment::OwnReports)),
        modulesOf(OwnReport(frames, c.expected)))
        << c.name;
}

TEST(NormalizeTest, AdjustsOtherReportsOnlyWhenAsked) {
  const std::string report =
      "PALLADO_Crash_Report_MACOS\r\n{\r\n Call_Stacks {\r\n  Call_Stack_Thread_1 {\r\n"
      "a:\tmain() + 1 (SP: 0x10, PC: 0x100)\r\nlib:\tx::{lambda}::f (SP: 0x10, PC: 0x00A0)\r\n"
      "lib:\tno counter (SP: 0x10)\r\nlib:\tzero (SP: 0x10, PC: 0x0)\r\n  Registers {\r\n"
      "   rip: 0x5 PC: 0x5 }\r\nlast:\t} (SP: 0x1, PC: 0xffffffffffffffff)\r\n  }\r\n"
      "  Call_Stack_Thread_2\r\n  {\r\n  b:\tf (SP: 0x1, PC: 0x20)\r\n  }\r\n }\r\n"
      " Critical_Log {\r\n  Call_Stacks\r\n  Call_Stack_Thread_3\r\n  a: PC: 0x9\r\n  a: PC: "
      "0x9\r\n }\r\n}";
  std::string adjusted = report;
  for (const auto& [from, to] :
       {std::pair("0x00A0", "0x9f"), std::pair("0xffffffffffffffff", "0xfffffffffffffffe")})
    adjusted.replace(adjusted.find(from), std::string(from).size(), to);
  EXPECT_EQ(Normalized(report, ReturnAddressAdjustment::AllReports), adjusted);
  EXPECT_EQ(Normalized(report, ReturnAddressAdjustment::OwnReports), report);
}

TEST(NormalizeTest, LeavesWhatItDoesNotUnderstand) {
  const std::string exact = OwnReport(
      Thread(Plain("a.so:\tf + 0x1", "11", "11") + Plain("a.so:\tf + 0x2", "12", "12")), "");
  EXPECT_EQ(Normalized(OwnReport(Thread(Own("a.so(f+0x1)", "11") + Own("a.so(f+0x2)", "12")), ""),
                       ReturnAddressAdjustment::None),
            exact);
  const std::string strange[] = {
      "",
      "TARVO_Crash_Report",
      "TARVO_Crash_Reports\n" + OwnReport(Thread(Own("a.so(+0x1)", "1")), ""),
      OwnReport(Thread("\t\t\ta.so(f+0x1) [0x]:\t(nil) (SP: 0x1, PC: (nil))\n"
                       "\t\t\ta.so(f+0x1) [0x12345678901234567]:\t(nil) (SP: 0x1, PC: (nil))\n"
                       "\t\t\ta.so f [0x1]:\t(nil) (SP: 0x1, PC: (nil))\n"
                       "\t\t\ta.so:\tf + 0x1 (SP: 0x1, PC: 0x2)\n"),
                ""),
      exact,
  };
  for (const std::string& report : strange)
    EXPECT_EQ(Normalized(report, ReturnAddressAdjustment::OwnReports), report);
}

}  // namespace
}  // namespace tarvo::report
