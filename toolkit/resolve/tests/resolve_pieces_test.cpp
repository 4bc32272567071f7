// What `tarvo resolve` is made of: the order of reports, the progress, texts for terminals.

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "toolkit/base/safe_text.h"
#include "toolkit/resolve/listing/report_list.h"
#include "toolkit/resolve/running/progress.h"
#include "toolkit/resolve/running/schedule.h"

namespace tarvo::toolkit {
namespace {

using namespace std::chrono_literals;
using Order = std::vector<std::size_t>;

std::vector<Report> ReportsOf(const std::vector<std::string>& builds) {
  std::vector<Report> reports;
  for (const std::string& build : builds) {
    Builds named;
    if (!build.empty()) named = {build, "other"};
    reports.push_back({.file = {}, .builds = std::make_shared<const Builds>(named)});
  }
  return reports;
}

TEST(ScheduleTest, OneReportOfABuildGoesFirst) {
  const auto reports = ReportsOf({"a", "b", "a", "", "b", "a"});
  Schedule schedule(reports);
  Order order;
  // One thread takes what needs no waiting, then the first report of each build.
  for (int i = 0; i < 3; ++i) order.push_back(*schedule.Take());
  EXPECT_EQ(order, (Order{3, 0, 1}));
  auto waiting = std::async(std::launch::async, [&] { return schedule.Take(); });
  EXPECT_EQ(waiting.wait_for(100ms), std::future_status::timeout);
  schedule.Done(1);
  ASSERT_EQ(waiting.wait_for(20s), std::future_status::ready);
  EXPECT_EQ(waiting.get(), 4);
  schedule.Done(4);
  schedule.Done(0);
  EXPECT_EQ(schedule.Take(), 2);
  EXPECT_EQ(schedule.Take(), 5);
  EXPECT_EQ(schedule.Take(), std::nullopt);
}

TEST(ScheduleTest, StopReleasesWhoWaits) {
  const auto reports = ReportsOf({"a", "a"});
  Schedule schedule(reports);
  EXPECT_EQ(schedule.Take(), 0);
  auto waiting = std::async(std::launch::async, [&] { return schedule.Take(); });
  schedule.Stop();
  schedule.Done(0);
  ASSERT_EQ(waiting.wait_for(20s), std::future_status::ready);
  EXPECT_EQ(waiting.get(), std::nullopt);
}

TEST(ScheduleTest, ManyThreadsTakeEachReportOnce) {
  std::vector<std::string> builds;
  for (int i = 0; i < 2000; ++i) builds.push_back(std::to_string(i % 7));
  const auto reports = ReportsOf(builds);
  Schedule schedule(reports);
  std::vector<std::atomic<int>> taken(reports.size());
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i)
      threads.emplace_back([&] {
        while (const auto report = schedule.Take()) {
          ++taken[*report];
          schedule.Done(*report);
        }
      });
  }
  for (const auto& count : taken) ASSERT_EQ(count, 1);
}

TEST(ProgressTest, SaysHowFarHowFastAndHowLong) {
  struct Case {
    Position position;
    std::size_t width;
    std::string bar;
  };
  const Case cases[] = {
      {{0, 10, 0ns}, 80, "[----------------------------------------] 0 of 10 reports"},
      {{5, 10, 2s}, 60, "[########---------] 5 of 10 reports, 2.5 a second, 2 s left"},
      {{10, 10, 500ms},
       80,
       "[########################################] 10 of 10 reports, 20 a second"},
      {{1, 101, 3660ms}, 60, "[---------] 1 of 101 reports, 16.4 a minute, 6 min 6 s left"},
      {{1, 4001, 3600s},
       80,
       "[--------------------------------] 1 of 4001 reports, 0.0 a minute, 4000 h left"},
      {{5, 10, 2s}, 30, "5 of 10 reports, 2.5 a second"},
      {{0, 0, 0ns}, 0, ""},
  };
  for (const Case& c : cases) EXPECT_EQ(ProgressBar(c.position, c.width), c.bar);
}

TEST(ReportListTest, FindsBuilds) {
  EXPECT_EQ(BuildsIn("Build = 1\r\n\tBuild=2\nRebuild = 3\nBuild\nBuild =\nX Build = 4\n"
                     "Build = 1\nBuildId = 5\n  Build =  a b \t"),
            (std::vector<std::string>{"1", "2", "a b"}));
  // One line of 30 MB: were it looked at from its start for each word, this would take hours.
  std::string words;
  for (int i = 0; i < 6'000'000; ++i) words += "Build";
  EXPECT_EQ(BuildsIn(words), Builds());
}

TEST(SafeTextTest, NothingActsOnATerminal) {
  const std::pair<std::string, std::string> cases[] = {
      {"plain ~ Überlauf €😀", "plain ~ Überlauf €😀"},
      {std::string("\x1b[2J\a\n\0", 7), "\\x1b[2J\\x07\\x0a\\x00"},
      {"\x7f\xc2\x9b", "\\x7f\\xc2\\x9b"},                             // DEL, C1's CSI
      {"\xe2\x80\xae\xe2\x81\xa6", "\\xe2\\x80\\xae\\xe2\\x81\\xa6"},  // direction overrides
      {"\xff\xc0\xaf", "\\xff\\xc0\\xaf"},                             // no UTF-8; too long a form
      {"\xed\xa0\x80", "\\xed\\xa0\\x80"},                             // a surrogate
      {"a\xe2\x82", "a\\xe2\\x82"},                                    // cut
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(SafeText(text), expected);
}

}  // namespace
}  // namespace tarvo::toolkit
