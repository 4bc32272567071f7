// Names, classes and the choice of frames, each as a table.

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "toolkit/triage/grouping/crash_class.h"
#include "toolkit/triage/grouping/fingerprint.h"
#include "toolkit/triage/grouping/similarity.h"
#include "toolkit/triage/grouping/stack_keys.h"
#include "toolkit/triage/names/name_key.h"
#include "toolkit/triage/reading/crash_time.h"

namespace tarvo::toolkit {
namespace {

using Texts = std::vector<std::string>;

TEST(NameKeyTest, OneFunctionHasOneKeyHoweverItIsSpelled) {
  std::ifstream table(NAMES);
  std::size_t count = 0;
  for (std::string line; std::getline(table, line);) {
    if (line.starts_with('#')) continue;
    const std::size_t tab = line.find('\t');
    ASSERT_NE(tab, std::string::npos) << line;
    EXPECT_EQ(MakeNameKey(line.substr(0, tab)).text, line.substr(tab + 1)) << line;
    ++count;
  }
  EXPECT_GT(count, 70U) << NAMES;
}

TEST(NameKeyTest, NamesThatAreCutOrMadeToHurtEnd) {
  const std::string deep(100'000, '<');
  EXPECT_EQ(MakeNameKey("f" + deep).text, "f");
  EXPECT_EQ(MakeNameKey("ns::f<int, std::vector<").text, "ns::f");
  EXPECT_EQ(MakeNameKey("f(`g(`h(`" + std::string(50'000, '`')).text, "f");
  for (const char* broken :
       {"operator", "operator<", "`", "'", "::", "<", "(", "~", "_Z", "_ZZ", "?", "??", "??0",
        "?A@", "$_", "{lambda", "[thunk]:", " + 0x1", "f()::"})
    EXPECT_LE(MakeNameKey(broken).text.size(), 16U) << broken;
}

TEST(CrashClassTest, FamiliesComeFromWhateverTheReportSays) {
  struct Case {
    CrashSigns signs;
    std::string expected;
  };
  const Case cases[] = {
      {{.exceptionText = "\"SIGSEGV\"", .exceptionNumber = "0x0000000B"}, "invalid memory access"},
      {{.exceptionText = "\"ACCESS_VIOLATION\"", .exceptionNumber = "0xC0000005"},
       "invalid memory access"},
      {{.exceptionText = "\"unknown signal\"",
        .exceptionNumber = "0x00000006",
        .signal = "SIGABRT"},
       "abort"},
      {{.exceptionNumber = "0xC00000FD"}, "stack overflow"},
      {{.signal = "SIGSEGV", .faultAddress = 0x7ffc1000, .stackPointer = 0x7ffc1ff0},
       "stack overflow"},
      {{.signal = "SIGSEGV", .faultAddress = 0x10, .stackPointer = 0x7ffc1ff0},
       "invalid memory access"},
      {{.signal = "SIGABRT", .exceptionType = "std::__cxx11::parse_error<int>"},
       "exception std::parse_error"},
      {{.signal = "SIGABRT", .exceptionType = "std::bad_alloc"}, "out of memory"},
      {{.signal = "SIGABRT", .assertion = "a.cpp:12: Assertion `p != 0x7f00' failed"},
       "assertion: a.cpp:#: Assertion `p != #' failed"},
      {{.signal = "SIGSEGV", .assertion = "Assertion failed"}, "invalid memory access"},
      {{.exceptionText = "\"odd 77\""}, "odd #"},
      {{}, "unknown"},
  };
  for (const Case& one : cases) EXPECT_EQ(CrashClass(one.signs), one.expected);
}

/// A stack of functions, of modules where "module!" stands in front; "^" is inlined into the next.
CrashStack Stack(const Texts& functions) {
  CrashStack stack;
  for (std::string text : functions) {
    StackEntry entry{.module = "app", .build = "7", .moduleOffset = 0x100 + stack.size()};
    entry.isInlined = text.starts_with('^');
    if (entry.isInlined) text.erase(0, 1);
    if (const std::size_t mark = text.find('!'); mark != std::string::npos) {
      entry.module = text.substr(0, mark);
      text.erase(0, mark + 1);
    }
    entry.function = text;
    stack.push_back(entry);
  }
  SetKeys(stack);
  return stack;
}

TEST(FingerprintTest, ACrashIsNamedAfterTheFirstFunctionsOfItsOwn) {
  struct Case {
    Texts stack;
    Texts expected;
  };
  const Case cases[] = {
      {{"ns::f(int)", "ns::g()", "main", "_start"}, {"ns::f", "ns::g", "main"}},
      {{"libc.so.6!gsignal", "abort", "ns::f()", "main"}, {"ns::f", "main"}},
      {{"g()", "std::terminate()", "__cxa_throw", "ns::f()", "main"}, {"ns::f", "main"}},
      {{"__memcpy_avx_unaligned_erms", "std::vector<int>::push_back(int&&)", "f()", "main"},
       {"f", "main"}},
      {{"crashhandler.so!Handle", "f()", "f()", "f()", "main"}, {"f", "main"}},
      {{"a()", "b()", "a()", "b()", "c()"}, {"a", "b", "c"}},
      {{"f()", "start_thread", "clone"}, {"f"}},
      {{"main", "__libc_start_main"}, {"main"}},
      {{"ntdll.dll!RtlFreeHeap", "KERNEL32.DLL!BaseThreadInitThunk"}, {"RtlFreeHeap"}},
      {{"^operator()", "^for_each<int*, ns::f(int)::<lambda(int)> >", "ns::f(int)", "main"},
       {"ns::f::{lambda}", "for_each", "ns::f"}},
      {{"^operator()", "ns::f(int)", "main"}, {"ns::f::{lambda}", "ns::f", "main"}},
      {{"^operator()", "ns::f()::{lambda()#1}::_FUN()", "main"}, {"ns::f::{lambda}", "main"}},
      {{"", "", "f()", "main"}, {"app+0x100@7", "app+0x101@7", "f"}},
      {{}, {}},
  };
  for (const Case& one : cases)
    EXPECT_EQ(MakeFingerprint(Stack(one.stack), "c").frames, one.expected);
}

TEST(FingerprintTest, IdsTellWhatIsOneGroupAndStayTheSame) {
  const auto group = [](const Texts& stack, const char* crashClass = "c") {
    return MakeFingerprint(Stack(stack), crashClass).group;
  };
  const Fingerprint known = MakeFingerprint(Stack({"ns::f(int)", "main"}), "abort");
  EXPECT_EQ(known.group + " " + known.variant, "cdb2e87b47ab7c4f 75b49910e638f7e0");
  EXPECT_EQ(group({"f()", "a()", "main"}), group({"f() [clone .cold]", "b()", "main"}));
  EXPECT_NE(group({"f()", "main"}), group({"f()", "main"}, "d"));
  // Without symbols: three frames tell stacks apart, one does not.
  EXPECT_NE(group({"", "", ""}), group({"", "x!", ""}));
  EXPECT_EQ(group({"", "", "f()", "a()"}), group({"", "", "f()", "b()"}));
  // Of a recursion it does not matter where the stack ended.
  const char* overflow = "stack overflow";
  EXPECT_EQ(group({"a()", "b()", "a()", "b()", "a()", "b()"}, overflow),
            group({"memset", "b()", "a()", "b()", "a()", "b()", "a()"}, overflow));
}

TEST(SimilarityTest, NearFramesCountMoreThanFarOnes) {
  const Texts stack = {"a", "b", "c", "d", "e", "main"};
  EXPECT_DOUBLE_EQ(Similarity(stack, stack), 1);
  EXPECT_EQ(Similarity(stack, Texts{"x", "y"}), 0);
  const double top = Similarity(stack, Texts{"x", "b", "c", "d", "e", "main"});
  const double bottom = Similarity(stack, Texts{"a", "b", "c", "d", "e", "x"});
  EXPECT_LT(top, bottom);
  EXPECT_GE(top, kAlike);
  EXPECT_LT(Similarity(stack, Texts{"x", "y", "z", "main"}), kAlike);
}

TEST(CrashTimeTest, TimesOfManySpellingsAreRead) {
  const std::pair<const char*, std::int64_t> cases[] = {{"2026-11-21T13:09:40Z", 1795266580},
                                                        {"\"2026-11-21 13:09:40\"", 1795266580},
                                                        {"2026-11-21T14:09:40.5+01:00", 1795266580},
                                                        {"2026-11-21T08:09:40-0500", 1795266580},
                                                        {"2026/11/21", 1795219200},
                                                        {"1795266580", 1795266580},
                                                        {"1795266580123", 1795266580},
                                                        {"2026-13-21", -1},
                                                        {"2026-11-21T25:00:00Z", -1},
                                                        {"12", -1},
                                                        {"", -1},
                                                        {"soon", -1}};
  for (const auto& [text, expected] : cases) {
    const auto time = ParseTime(text);
    EXPECT_EQ(time ? time->time_since_epoch().count() : -1, expected) << text;
  }
}

}  // namespace
}  // namespace tarvo::toolkit
