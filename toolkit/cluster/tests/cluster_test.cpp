#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <memory>
#include <set>

#include "support/files.h"
#include "tarvo/host/host.h"
#include "toolkit/cluster/merge.h"
#include "toolkit/cluster/shard.h"
#include "toolkit/cluster/shard_work.h"

namespace tarvo::toolkit {
namespace {

std::string Hash(std::size_t i) {
  char text[65];
  std::snprintf(text, sizeof text, "%08zx%056zx", (i * 2654435761U) & 0xffffffffU, i);
  return text;
}

/// `counts[i]` reports of build i, of a thousand bytes each.
std::vector<ListedReport> List(const std::vector<std::size_t>& counts) {
  std::vector<ListedReport> list;
  for (std::size_t build = 0; build < counts.size(); ++build) {
    const auto builds = std::make_shared<const Builds>(Builds{"B" + std::to_string(build)});
    for (std::size_t i = 0; i < counts[build]; ++i) {
      const std::size_t n = list.size();
      list.push_back({{.file = Url::FromSystemPath(String("r" + std::to_string(n))),
                       .builds = builds,
                       .needsCopy = n % 2 == 0},
                      1000,
                      Hash(n)});
    }
  }
  return list;
}

TEST(Shard, PartsAreEqualAndBuildsStayTogether) {
  const struct {
    std::vector<std::size_t> counts;  ///< of reports, by build
    std::size_t shards;
    std::size_t most;        ///< reports in one shard
    std::size_t unpackings;  ///< over all shards, the builds that it has reports of
  } kCases[] = {
      {{100, 100, 100, 100}, 4, 100, 4},
      {{100, 100, 100, 100}, 2, 200, 4},
      {{900, 30, 30, 40}, 10, 130, 13},
      {{110, 90, 100, 100}, 4, 110, 4},
      {{1000}, 4, 275, 4},
      {{3}, 8, 3, 3},
      {{0}, 3, 0, 0},
      {{50, 40, 30, 20, 10, 10}, 3, 60, 6},
  };
  for (const auto& [counts, shards, most, unpackings] : kCases) {
    const auto list = List(counts);
    std::vector<std::size_t> all;
    std::size_t largest = 0;
    std::size_t builds = 0;
    for (std::size_t i = 0; i < shards; ++i) {
      const auto mine = ReportsOf({i, shards}, list);
      std::set<std::string> named;
      for (const std::size_t report : mine) named.insert(list[report].report.builds->front());
      builds += named.size();
      largest = std::max(largest, mine.size());
      all.insert(all.end(), mine.begin(), mine.end());
    }
    std::ranges::sort(all);
    std::vector<std::size_t> each(list.size());
    for (std::size_t i = 0; i < each.size(); ++i) each[i] = i;
    EXPECT_EQ(all, each);
    EXPECT_LE(largest, most) << shards;
    EXPECT_LE(builds, unpackings) << shards;
  }
  for (const char* text : {"0/3", "4/3", "1/0", "1", "/", "1/3x", "-1/3", "1/100001"})
    EXPECT_FALSE(ShardFromText(text)) << text;
}

/// Files of a directory of its own, with a host.
class ClusterTest : public testing::Test {
 protected:
  Url File(const std::string& name) const {
    return Url::FromSystemPath(String((directory_ / name).string()));
  }
  void Write(const std::string& name, const std::string& text) const {
    std::ofstream(directory_ / name) << text;
  }
  static std::string Line(const ListedReport& of, const std::string& more = "") {
    return "{\"Outcome\":{\"Report\":\"" + of.report.file.Text().ToStdString() + "\",\"Hash\":\"" +
           of.hash + "\"" + more + "},\"Threads\":[]}\n";
  }

  TemporaryDirectory directory_;
  Result<std::unique_ptr<Host>> host_ = Host::Start({.modules = {CRASHHANDLER_MODULE}});
};

TEST_F(ClusterTest, AListComesBackAndDamageIsNamed) {
  ASSERT_TRUE(host_) << host_.GetError().Text().View();
  const auto list = List({2, 1});
  ASSERT_TRUE(WriteReportList((*host_)->Services().Files(), list, File("list")));
  const auto read = ReadReportList(File("list"));
  ASSERT_TRUE(read);
  ASSERT_EQ(read->size(), list.size());
  for (std::size_t i = 0; i < list.size(); ++i) {
    EXPECT_EQ((*read)[i].report.file.Text(), list[i].report.file.Text());
    EXPECT_EQ(*(*read)[i].report.builds, *list[i].report.builds);
    EXPECT_EQ((*read)[i].report.needsCopy, list[i].report.needsCopy);
    EXPECT_EQ((*read)[i].hash, list[i].hash);
    EXPECT_EQ((*read)[i].size, list[i].size);
  }
  const std::string whole = ReadFile(directory_ / "list");
  const std::string first = whole.substr(0, whole.find('\n') + 1);
  for (const std::string& damaged :
       {first + first, first + "{}\n", first + "[", first + first.substr(0, 40),
        first + std::string(100'000, '[') + '\n'}) {
    Write("damaged", damaged);
    const auto refused = ReadReportList(File("damaged"));
    ASSERT_FALSE(refused) << damaged;
    EXPECT_NE(refused.GetError().Text().View().find("line 2"), std::string_view::npos);
  }
}

TEST_F(ClusterTest, AKilledShardIsTakenUpAndOneThatRanIsNot) {
  ASSERT_TRUE(host_);
  const auto list = List({4});
  const std::string stale = "{\"Outcome\":{\"Report\":\"r2\",\"Hash\":\"" + Hash(99) + "\"}}\n";
  const std::string lacking =
      R"(,"Lacks":[{"Reason":"ArchiveMissing","Platform":"linux","Build":"B0","Module":"m","Frames":5}])";
  Write("r.jsonl.partial-abc", Line(list[3], lacking) + stale + Line(list[0]).substr(0, 30));
  Write("r.jsonl.partial-def", Line(list[1], ",\"Error\":\"broken\"") + Line(list[3]));
  auto taken = TakeUpShard((*host_)->Services().Files(), list, {0, 1}, File("r.jsonl"));
  ASSERT_TRUE(taken && taken->work);
  ShardWork& work = *taken->work;
  ASSERT_EQ(work.reports.size(), 2U);
  EXPECT_EQ(taken->reports, 2U);
  const std::map<Lacks::Place, std::uint64_t> lack = {{{"linux", "B0"}, 1}};
  EXPECT_EQ(taken->lacks.Reports(), lack) << "of the reports that are not resolved again";
  EXPECT_EQ(work.reports[0].file.Text(), list[0].report.file.Text());
  work.results.Add(1, Line(list[2], lacking));
  work.results.Add(0, Line(list[0]));
  ASSERT_TRUE(FinishShard(work));
  EXPECT_EQ(ReadFile(directory_ / "r.jsonl"), Line(list[0]) +
                                                  Line(list[1], ",\"Error\":\"broken\"") +
                                                  Line(list[2], lacking) + Line(list[3], lacking));
  using Entries = std::filesystem::directory_iterator;
  EXPECT_EQ(std::distance(Entries(directory_.Path()), Entries()), 1);
  const auto again = TakeUpShard((*host_)->Services().Files(), list, {0, 1}, File("r.jsonl"));
  ASSERT_TRUE(again);
  EXPECT_FALSE(again->work) << "it ran";
  EXPECT_EQ(again->lacks.Reports().begin()->second, 2U) << "reports that lack it";
  EXPECT_TRUE(TakeUpShard((*host_)->Services().Files(), List({5}), {0, 1}, File("r.jsonl"))->work)
      << "another list";
}

TEST_F(ClusterTest, EachListedReportHasOneOutcomeOrIsNamed) {
  const auto list = List({3});
  const std::string failed = Line(list[1], ",\"Error\":\"broken\"");
  const struct {
    std::string first, second;
    std::vector<std::size_t> missing;
    std::size_t resolved, failed, doubled, unlisted;
    bool isRead = true;
  } kCases[] = {
      {Line(list[2]) + failed, Line(list[0]), {}, 2, 1, 0, 0},
      {Line(list[2]), "", {0, 1}, 1, 0, 0, 0},
      {Line(list[2]) + failed, Line(list[2]) + Line(list[0]), {}, 2, 1, 1, 0},
      {Line(List({4})[3]), Line(list[0]), {1, 2}, 1, 0, 0, 1},
      {Line(list[2]) + failed.substr(0, 50), "", {}, 0, 0, 0, 0, false},
      {"{}\n", "", {}, 0, 0, 0, 0, false},
  };
  for (const auto& [first, second, missing, resolved, broken, doubled, unlisted, isRead] : kCases) {
    Write("1", first);
    Write("2", second);
    std::map<std::size_t, std::string> taken;
    const auto merge = MergeResults(list, {File("1"), File("2"), File("none")},
                                    [&](std::size_t place, std::string_view line) {
                                      taken[place] = line;
                                      return Result<void>();
                                    });
    ASSERT_EQ(static_cast<bool>(merge), isRead) << first;
    if (!isRead) continue;
    EXPECT_EQ(merge->missing, missing);
    EXPECT_EQ(merge->resolved, resolved);
    EXPECT_EQ(merge->failed, broken);
    EXPECT_EQ(merge->doubled.size(), doubled);
    EXPECT_EQ(merge->unlisted.size(), unlisted);
    EXPECT_EQ(taken.size(), list.size() - missing.size());
    for (const auto& [place, line] : taken)
      EXPECT_EQ(line, place == 1 ? failed : Line(list[place]));
  }
}

}  // namespace
}  // namespace tarvo::toolkit
