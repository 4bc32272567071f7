#include "files/directory_once.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <thread>
#include <vector>

#include "support/files.h"

namespace tarvo {
namespace {

namespace fs = std::filesystem;

class DirectoryOnceTest : public testing::Test {
 protected:
  Result<void> MakeIt(const FillDirectory& fill) {
    return MakeDirectoryOnce(Url::FromSystemPath((folder_ / "out").string()), fill);
  }

  /// Makes one file, slowly, and notes that it was called.
  Result<void> FillSlowly(int directory) {
    std::ofstream(folder_ / "calls", std::ios::app) << '.' << std::flush;
    usleep(50'000);
    close(openat(directory, "file", O_CREAT | O_WRONLY, 0600));
    return {};
  }

  [[nodiscard]] std::size_t Calls() const { return fs::file_size(folder_ / "calls"); }

  void ExpectOnlyTheDirectory() {
    EXPECT_TRUE(fs::is_regular_file(folder_ / "out/file"));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_ / "out"), {}), 1);
    fs::remove(folder_ / "calls");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_.Path()), {}), 1);
  }

  TemporaryDirectory folder_;
};

TEST_F(DirectoryOnceTest, OneOfManyThreadsAndProcessesFillsItAndAllUseIt) {
  constexpr int kThreads = 4;
  constexpr int kProcesses = 4;
  const auto work = [this] {
    std::vector<std::jthread> threads;
    std::atomic<int> done{0};
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&] {
        if (MakeIt([this](int directory) { return FillSlowly(directory); }) &&
            fs::exists(folder_ / "out/file"))
          ++done;
      });
    }
    threads.clear();
    return done == kThreads;
  };
  for (int i = 0; i < kProcesses; ++i)
    if (fork() == 0) _exit(work() ? 0 : 1);
  for (int i = 0; i < kProcesses; ++i) {
    int status = -1;
    wait(&status);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(Calls(), 1u);
  ExpectOnlyTheDirectory();
}

TEST_F(DirectoryOnceTest, WhoWaitedForOneThatFailedMakesItItself) {
  const auto failing = [this](int directory) -> Result<void> {
    if (auto filled = FillSlowly(directory); !filled) return filled;
    return Error::IllegalState({}, "no luck");
  };
  std::jthread first([&] { EXPECT_FALSE(MakeIt(failing)); });
  while (!fs::exists(folder_ / "calls")) usleep(1000);
  EXPECT_TRUE(MakeIt([this](int directory) { return FillSlowly(directory); }));
  first.join();
  EXPECT_EQ(Calls(), 2u);
  ExpectOnlyTheDirectory();
}

TEST_F(DirectoryOnceTest, AKilledMakersRestIsClearedAway) {
  const pid_t child = fork();
  if (child == 0) {
    (void)MakeIt([](int directory) -> Result<void> {
      close(openat(directory, "part", O_CREAT | O_WRONLY, 0600));
      kill(getpid(), SIGKILL);
      return {};
    });
  }
  waitpid(child, nullptr, 0);
  ASSERT_FALSE(fs::exists(folder_ / "out"));
  EXPECT_TRUE(MakeIt([this](int directory) { return FillSlowly(directory); }));
  ExpectOnlyTheDirectory();
}

TEST_F(DirectoryOnceTest, WhatIsThereIsLeftAsItIs) {
  fs::create_directory(folder_ / "out");
  EXPECT_TRUE(MakeIt([](int) -> Result<void> { return Error::IllegalState({}, "not called"); }));
  EXPECT_TRUE(fs::is_empty(folder_ / "out"));
  fs::remove(folder_ / "out");
  std::ofstream(folder_ / "out") << "a file";
  const Result<void> made = MakeIt([](int) { return Result<void>(); });
  ASSERT_FALSE(made);
  EXPECT_EQ(made.GetError().Text().ToStdString(),
            "Could not make the directory \"" + (folder_ / "out").string() + "\": Not a directory");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_.Path()), {}), 1);
}

}  // namespace
}  // namespace tarvo
