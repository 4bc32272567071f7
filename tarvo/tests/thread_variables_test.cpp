#include "tarvo/host/thread_variables.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "crash_path/crash_services.h"

namespace tarvo {
namespace {

using namespace std::string_literals;

/// A thread's variables on one line: "a=1;b=2;".
std::string Variables(pid_t tid) {
  std::string text;
  const ThreadVariableList list = kCrashServices.threadVariables(tid);
  for (std::size_t i = 0; i < list.size; ++i)
    text += std::string(list.items[i].name) + '=' + list.items[i].value + ';';
  kCrashServices.releaseThreadVariables();
  return text;
}

/// What `work` returns, run in a thread of its own so that it starts without variables.
template <typename Work>
std::string InThread(Work work) {
  std::string text;
  std::thread([&] { text = work(); }).join();
  return text;
}

TEST(ThreadVariables, KeepTheirOrderAndReplaceInPlace) {
  EXPECT_EQ(InThread([] {
              EXPECT_TRUE(SetThreadVariable("a", "1"));
              EXPECT_TRUE(SetThreadVariable("b", ""));
              EXPECT_TRUE(SetThreadVariable("c", "3"));
              EXPECT_TRUE(SetThreadVariable("a", "new"));
              RemoveThreadVariable("b");
              RemoveThreadVariable("none");
              EXPECT_TRUE(SetThreadVariable("b", "last"));
              return Variables(gettid());
            }),
            "a=new;c=3;b=last;");
}

TEST(ThreadVariables, NeverBreakALineOfTheReport) {
  const std::string limit(kMaximumThreadVariableValue, 'v');
  const struct {
    std::string name;
    std::string value;
    std::string expected;  ///< empty: the name is refused
  } kCases[] = {
      {"Document", "a\nb\r\nc\0d\te = f"s, "Document=a b  c d\te = f;"},
      {"_x-1.y", limit + "more", "_x-1.y=" + limit + ";"},
      // The two bytes of a character stand on both sides of the limit.
      {"cut", limit.substr(1) + "\xC3\x84", "cut=" + limit.substr(1) + ";"},
      {"invalid", std::string(5000, '\x80'), "invalid=" + std::string(4092, '\x80') + ";"},
      {std::string(256, 'n'), "", std::string(256, 'n') + "=;"},
      {std::string(257, 'n'), "", ""},
      {"", "", ""},
      {"1st", "", ""},
      {"a b", "", ""},
      {"a=b", "", ""},
      {"a\n", "", ""},
      {"a\0"s, "", ""},
      {"\xC3\x84", "", ""},
  };
  for (const auto& [name, value, expected] : kCases) {
    EXPECT_EQ(InThread([&] {
                const auto result = SetThreadVariable(name, value);
                EXPECT_EQ(static_cast<bool>(result), !expected.empty()) << name;
                if (!result) {
                  EXPECT_EQ(result.GetError().ClassId(), Error::kIllegalArgument);
                }
                return Variables(gettid());
              }),
              expected);
  }
}

TEST(ThreadVariables, EndWithTheirThread) {
  EXPECT_EQ(Variables(gettid()), "");
  std::vector<pid_t> tids(20);
  for (pid_t& tid : tids) {
    // A thread that takes over the place of one before starts empty.
    std::thread([&tid] {
      tid = gettid();
      EXPECT_EQ(Variables(tid), "");
      EXPECT_TRUE(SetThreadVariable("tid", std::to_string(tid)));
      EXPECT_EQ(Variables(tid), "tid=" + std::to_string(tid) + ";");
    }).join();
    EXPECT_EQ(Variables(tid), "");
  }
}

/// Sets a variable while its thread ends, after the thread's own variables are gone.
struct LateSetter {
  ~LateSetter() { EXPECT_TRUE(SetThreadVariable("late", "1")); }
};

TEST(ThreadVariables, SetByADestructorAtTheThreadsEndAreNotLeftBehind) {
  pid_t tid = 0;
  std::thread([&tid] {
    thread_local const LateSetter setter;
    static_cast<void>(&setter);  // makes it
    tid = gettid();
    EXPECT_TRUE(SetThreadVariable("early", "1"));
  }).join();
  EXPECT_EQ(Variables(tid), "");
}

// The facts of a crash stand behind the crashed thread's variables, and always find room.
TEST(ThreadVariables, ACrashAddsItsFacts) {
  const NameAndValue facts[] = {{"FaultSignal", "SIGSEGV"}, {"FaultCode", "7"}};
  const auto crash = [&](std::size_t count) {
    return InThread([&] {
      for (std::size_t i = 0; i < count; ++i) (void)SetThreadVariable("v" + std::to_string(i), "x");
      AddCrashVariables(gettid(), facts);
      return Variables(gettid());
    });
  };
  EXPECT_EQ(crash(0), "FaultSignal=SIGSEGV;FaultCode=7;");
  EXPECT_EQ(crash(2), "v0=x;v1=x;FaultSignal=SIGSEGV;FaultCode=7;");
  const std::string full = crash(kMaximumCrashVariables);
  EXPECT_EQ(std::ranges::count(full, ';'), static_cast<long>(kMaximumCrashVariables));
  EXPECT_TRUE(full.ends_with(";v509=x;FaultSignal=SIGSEGV;FaultCode=7;")) << full;
}

TEST(ThreadVariables, AForkedChildKeepsThoseOfItsOnlyThread) {
  std::latch isSet(1);
  std::latch isDone(1);
  pid_t other = 0;
  std::thread thread([&] {
    EXPECT_TRUE(SetThreadVariable("other", "1"));
    other = gettid();
    isSet.count_down();
    isDone.wait();
  });
  isSet.wait();
  EXPECT_TRUE(SetThreadVariable("own", "1"));
  const pid_t parent = gettid();
  const pid_t child = fork();
  if (child == 0) {
    const bool isRight =
        Variables(gettid()) == "own=1;" && Variables(other).empty() && Variables(parent).empty();
    const bool canSet =
        isRight && SetThreadVariable("child", "1") && Variables(gettid()) == "own=1;child=1;";
    _exit(canSet ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  isDone.count_down();
  thread.join();
  EXPECT_EQ(Variables(parent), "own=1;");
  RemoveThreadVariable("own");
}

// --- Look-ups at any moment ----------------------------------------------------------------------

constexpr int kWriters = 3;
std::atomic<pid_t> g_writers[kWriters];
std::atomic<int> g_interruptions;
std::atomic<int> g_torn;

/// A writer sets "first" and "second" to runs of one letter, and one more variable now and then: a
/// snapshot is whole when each value is one run of the length that its letter stands for.
bool IsWhole(const NameAndValue& variable) {
  const std::string_view value = variable.value;
  return !value.empty() && value.size() == static_cast<std::size_t>(value[0] - 'a' + 1) * 20 &&
         value.find_first_not_of(value[0]) == std::string_view::npos;
}

void LookUpAll() {
  for (const auto& writer : g_writers) {
    const ThreadVariableList list = kCrashServices.threadVariables(writer.load());
    for (std::size_t i = 0; i < list.size; ++i)
      if (!IsWhole(list.items[i])) ++g_torn;
  }
  kCrashServices.releaseThreadVariables();
}

void WriteUntil(const std::atomic<bool>& isOver, std::atomic<pid_t>& tid) {
  tid = gettid();
  for (int i = 0; !isOver; ++i) {
    const std::string value(static_cast<std::size_t>(i % 26 + 1) * 20,
                            static_cast<char>('a' + i % 26));
    EXPECT_TRUE(SetThreadVariable("first", value));
    EXPECT_TRUE(SetThreadVariable("second", value));
    if (i % 5 == 0) {
      EXPECT_TRUE(SetThreadVariable("third", value));
    }
    if (i % 7 == 0) RemoveThreadVariable("third");
  }
}

TEST(ThreadVariables, LookUpsSeeWholeValuesAtAnyMoment) {
  std::atomic<bool> isOver = false;
  struct sigaction action{};
  action.sa_handler = [](int) {
    LookUpAll();
    ++g_interruptions;
  };
  action.sa_flags = SA_RESTART;
  struct sigaction before{};
  sigaction(SIGUSR1, &action, &before);

  std::vector<std::thread> threads;
  for (auto& writer : g_writers)
    threads.emplace_back([&isOver, &writer] { WriteUntil(isOver, writer); });
  threads.emplace_back([&isOver] {
    for (; !isOver; std::this_thread::yield()) LookUpAll();
  });
  // Every writer is interrupted again and again, wherever it is.
  while (g_interruptions < 1000) {
    for (std::size_t writer = 0; writer < kWriters; ++writer)
      pthread_kill(threads[writer].native_handle(), SIGUSR1);
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  isOver = true;
  for (std::thread& thread : threads) thread.join();
  sigaction(SIGUSR1, &before, nullptr);
  EXPECT_EQ(g_torn, 0);
}

}  // namespace
}  // namespace tarvo
