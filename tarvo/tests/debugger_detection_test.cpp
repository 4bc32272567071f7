#include "services/debugger_detection.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/files.h"

namespace tarvo {
namespace {

struct Process {
  const char* folder;
  const char* name;
  int tracer;
  int parent;
};

TEST(RunsUnderDebugger, LooksAtTracerAndParents) {
  const Process kInit{"1", "systemd", 0, 0};
  const struct {
    const char* what;
    std::vector<Process> processes;
    bool expected;
  } kCases[] = {
      {"nothing readable", {}, false},
      {"plain", {{"self", "demo", 0, 20}, {"20", "bash", 0, 1}, kInit}, false},
      {"traced", {{"self", "demo", 77, 20}, {"20", "bash", 0, 1}, kInit}, true},
      {"named like a debugger itself", {{"self", "gdb", 0, 1}, kInit}, false},
      {"parent is gdb", {{"self", "demo", 0, 20}, {"20", "gdb", 0, 1}, kInit}, true},
      {"grandparent is a variant",
       {{"self", "demo", 0, 20}, {"20", "sh", 0, 30}, {"30", "lldb-server", 0, 1}, kInit},
       true},
      {"names that only begin alike",
       {{"self", "demo", 0, 20}, {"20", "gdbus", 0, 30}, {"30", "rrdtool", 0, 1}, kInit},
       false},
      {"parents in a circle", {{"self", "demo", 0, 20}, {"20", "sh", 0, 20}}, false},
      {"parent that went away", {{"self", "demo", 0, 20}}, false},
  };
  for (const auto& [what, processes, expected] : kCases) {
    const TemporaryDirectory directory;
    for (const auto& [folder, name, tracer, parent] : processes) {
      std::filesystem::create_directory(directory / folder);
      std::ofstream(directory / folder / "comm") << name << '\n';
      std::ofstream(directory / folder / "status")
          << "Name:\t" << name << "\nPPid:\t" << parent << "\nTracerPid:\t" << tracer << "\n";
    }
    EXPECT_EQ(RunsUnderDebugger(directory.Path().string()), expected) << what;
  }
}

}  // namespace
}  // namespace tarvo
