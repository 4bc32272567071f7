#include "services/output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "crash_path/crash_services.h"

namespace tarvo {
namespace {

constexpr SourceLocation kWhere{"tests/output", 7};

TEST(Output, WritesEachKindToItsStream) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  Output output;
  output.Diagnostic(kWhere, "one");
  output.Critical(kWhere, "two");
  output.Console(kWhere, "three");
  output.Console(kWhere, "four\n");
  output.Diagnostic(kWhere, "");
  WriteCrashDiagnostic("tests/output", 4294967295, "five");
  WriteCrashDiagnostic("tests/output", 0, nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "three\nfour\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "tests/output:7: one\ntests/output:7: critical: two\ntests/output:7: \n"
            "tests/output:4294967295: five\ntests/output:0: \n");
}

TEST(Output, LetsNothingSteerTheTerminal) {
  const std::string hostile =
      "\x1b]0;pwned\x07\x1b[2J\na\xC2\x9B"
      "b\xE2\x80\xAE";
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  Output output;
  output.Console(kWhere, hostile);
  output.Console(kWhere, std::string(10'000'000, 'x'));
  output.Diagnostic(kWhere, hostile);
  output.Critical(kWhere, hostile + "\n");
  WriteCrashDiagnostic("p", 1, hostile.c_str());
  const std::string start = R"(\x1b]0;pwned\x07\x1b[2J\x0aa)";
  const std::string safe = start + R"(\xc2\x9bb\xe2\x80\xae)" + "\n";
  EXPECT_EQ(testing::internal::GetCapturedStdout(), safe + std::string(65536, 'x') + "…\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "tests/output:7: " + safe + "tests/output:7: critical: " + safe + "p:1: " + start +
                "\xC2\\x9bb\xE2\x80\xAE\n");
}

TEST(Output, CutsACrashDiagnosticButKeepsItsLineEnd) {
  testing::internal::CaptureStderr();
  WriteCrashDiagnostic("p", 1, std::string(5000, 'x').c_str());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "p:1: " + std::string(994, 'x') + "\n");
}

/// Standard output as a pipe that is small, slow and non-blocking, so that the kernel takes the
/// lines in pieces.
TEST(Output, LinesOfSeveralThreadsStayWholeOnASlowPipe) {
  constexpr int kThreads = 4;
  constexpr int kLines = 50;
  constexpr std::size_t kLength = 10000;
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  fcntl(ends[1], F_SETPIPE_SZ, 4096);
  fcntl(ends[1], F_SETFL, O_NONBLOCK);
  const int saved = dup(STDOUT_FILENO);
  dup2(ends[1], STDOUT_FILENO);
  close(ends[1]);

  std::string received;
  std::thread reader([&received, from = ends[0]] {
    char buffer[1000];
    for (ssize_t got = 0; (got = read(from, buffer, sizeof buffer)) > 0;)
      received.append(buffer, static_cast<std::size_t>(got));
  });
  std::vector<std::thread> writers;
  for (int i = 0; i < kThreads; ++i) {
    writers.emplace_back([letter = static_cast<char>('a' + i)] {
      Output output;
      for (int line = 0; line < kLines; ++line)
        output.Console(kWhere, std::string(kLength, letter));
    });
  }
  for (std::thread& writer : writers) writer.join();
  dup2(saved, STDOUT_FILENO);
  close(saved);
  reader.join();
  close(ends[0]);

  std::map<std::string, int> lines;
  std::istringstream stream(received);
  for (std::string line; std::getline(stream, line);) ++lines[line];
  std::map<std::string, int> expected;
  for (int i = 0; i < kThreads; ++i)
    expected[std::string(kLength, static_cast<char>('a' + i))] = kLines;
  EXPECT_TRUE(lines == expected) << lines.size() << " different lines";
}

}  // namespace
}  // namespace tarvo
