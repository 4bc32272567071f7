// The memory that hostile reports cost: at most a stated multiple of their size.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "support/files.h"
#include "support/program.h"

namespace {

constexpr std::size_t kSize = 4 << 20;
constexpr std::size_t kMultiple = 40;
/// What the program takes without any report.
constexpr std::size_t kFree = std::size_t{32} << 20;

/// `before`, then `piece` until the report has its size; "@" is the piece's number.
std::string Report(const std::string& before, const std::string& piece) {
  std::string report = before;
  for (std::size_t i = 0; report.size() < kSize; ++i) {
    const std::size_t at = piece.find('@');
    report += at == std::string::npos
                  ? piece
                  : piece.substr(0, at) + std::to_string(i) + piece.substr(at + 1);
  }
  return report;
}

/// The most memory, in bytes, that `tarvo resolve` takes for one report.
std::size_t PeakOfResolving(const std::filesystem::path& folder, const char* strict) {
  const std::string program = BuildDirectory() + "/bin/tarvo";
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    if (chdir(folder.c_str()) != 0 || freopen("out", "w", stdout) == nullptr) _exit(9);
    execl(program.c_str(), "tarvo", "resolve", "r_bugreport.txt", "--archives", ".", "--cache",
          "cache", "--jobs", "1", strict, nullptr);
    _exit(9);
  }
  int status = 0;
  rusage used{};
  EXPECT_EQ(wait4(child, &status, 0, &used), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < 2) << status;
  return static_cast<std::size_t>(used.ru_maxrss) * 1024;
}

TEST(ReadingBudget, MemoryIsAMultipleOfTheReport) {
  if (kSanitized) GTEST_SKIP() << "the sanitizer's memory counts too";
  const std::string stack = "Call_Stacks\n{\nCall_Stack_Thread_1\n{\n";
  const struct {
    const char* what;
    std::string before;
    std::string piece;
  } kShapes[] = {
      {"scenes", "Opened Scenes\n{\n", "a=\n"},
      {"equal frames", stack, "a:\n"},
      {"different frames", stack, "a@:\n"},
      {"own frames", stack, "\t\t\ta(f+0x1) [0x1]:\t(nil) (SP: 0x1, PC: (nil))\n"},
      {"odd frames", stack, "(@\n"},
      {"log lines", "Critical_Log\n{\n", "x\n"},
      {"variables", stack + "Variables\n{\n", "v@=\n"},
      {"registers", stack + "Registers\n{\n", "r@:0 "},
      {"threads", "Call_Stacks\n{\n", "Call_Stack_Thread_@{}\n"},
      {"modules", "Loaded_Modules\n{\n", "ModuleName=a\n{\n}\n"},
      {"blank lines", "", "\n"},
  };
  const TemporaryDirectory folder;
  for (const char* magic : {"PALLADO_Crash_Report_LINUX", "TARVO_Crash_Report"}) {
    for (const auto& [what, before, piece] : kShapes) {
      std::ofstream(folder / "r_bugreport.txt", std::ios::binary)
          << Report(std::string(magic) + "\n{\n" + before, piece);
      for (const char* strict : {static_cast<const char*>(nullptr), "--strict"})
        EXPECT_LE(PeakOfResolving(folder.Path(), strict), kFree + kMultiple * kSize)
            << what << " in " << magic;
    }
  }
}

}  // namespace
