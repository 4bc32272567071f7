// `tarvo resolve` over real crashes of the demo with real symbols.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "resolve_fixture.h"

namespace tarvo {
namespace {

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

}  // namespace
}  // namespace tarvo
