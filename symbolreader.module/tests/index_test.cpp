// The directory of indices: reuse, damage, several processes, and what happens without it.

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <random>
#include <set>

#include "debug_files.h"
#include "index/block_table.h"
#include "index/index_format.h"
#include "support/files.h"
#include "support/program.h"

namespace tarvo::symbolreader {
namespace {

namespace fs = std::filesystem;

class Index : public testing::Test {
 protected:
  void SetUp() override {
    TARVO_MAKE_OR_SKIP(directory, recipe_);
    addresses_ = SymbolizerAnswers(directory, recipe_.file);
  }

  std::map<std::uint64_t, Answer> Resolve(std::vector<std::string> arguments = {}) {
    testing::internal::CaptureStderr();
    auto answers = Answers(indices_, recipe_, addresses_, std::move(arguments));
    errors_ = testing::internal::GetCapturedStderr();
    return answers;
  }
  fs::path IndexFile() const { return indices_ / ListDirectory(indices_).front(); }

  const Recipe& recipe_ = RecipeNamed("ElfPie");
  const TemporaryDirectory scratch_;
  fs::path indices_ = scratch_ / "a/b/indices";
  std::map<std::uint64_t, Answer> addresses_;
  std::string errors_;
};

TEST_F(Index, IsMadeOnceAndNamedAfterTheBuildId) {
  EXPECT_EQ(Resolve(), addresses_);
  const auto files = ListDirectory(indices_);
  ASSERT_EQ(files.size(), 1U);
  EXPECT_TRUE(files[0].ends_with("-x86_64-v" + std::to_string(kIndexVersion) + ".index"));
  EXPECT_EQ(files[0].find('-'), 40U) << "a build id has 20 bytes";
  EXPECT_EQ(fs::status(indices_).permissions(), fs::perms::owner_all);
  const auto time = fs::last_write_time(IndexFile());
  EXPECT_EQ(Resolve(), addresses_);
  EXPECT_EQ(fs::last_write_time(IndexFile()), time);
  EXPECT_EQ(errors_, "");
}

TEST_F(Index, IsRebuiltWhenItIsDamaged) {
  EXPECT_EQ(Resolve(), addresses_);
  const fs::path file = IndexFile();
  const std::string whole = ReadFile(file);
  std::vector<std::string> damaged = {"", "x", whole.substr(0, whole.size() / 2), whole + "x",
                                      std::string(whole.size(), '\0')};
  for (const std::size_t at :
       {std::size_t{0}, std::size_t{60}, whole.size() / 3, whole.size() / 2, whole.size() - 60,
        whole.size() - sizeof(IndexTrailer), whole.size() - 20, whole.size() - 1}) {
    damaged.push_back(whole);
    damaged.back()[at] ^= 4;
  }
  for (const std::string& bytes : damaged) {
    WriteFile(file, bytes);
    WriteFile(file.string().replace(file.string().find(".index"), 6, ".1-0.tmp"), "left behind");
    EXPECT_EQ(Resolve(), addresses_);
    EXPECT_EQ(ReadFile(file).size(), whole.size());
    EXPECT_EQ(ListDirectory(indices_).size(), 1U);
  }
}

// Many units, so that threads that are done in another order each time have something to disorder.
TEST(IndexBytes, AreTheSameEveryTime) {
  const Recipe& recipe = kManyUnits;
  TARVO_MAKE_OR_SKIP(directory, recipe);
  const std::map<std::uint64_t, Answer> addresses = {{0x1000, {}}};
  std::set<std::string> contents;
  for (int round = 0; round < 12; ++round) {
    const TemporaryDirectory scratch;
    (void)Answers(scratch / "indices", recipe, addresses);
    contents.insert(
        ReadFile(scratch / "indices" / ListDirectory(scratch / "indices").front().c_str()));
  }
  EXPECT_EQ(contents.size(), 1U);
  EXPECT_GT(contents.begin()->size(), 10'000U);
}

TEST(SupplementaryFile, IsFollowedWhereItIsTheRightOne) {
  TARVO_MAKE_OR_SKIP(directory, kShared);
  const auto expected = SymbolizerAnswers(directory, kShared.file);
  const TemporaryDirectory scratch;
  EXPECT_EQ(Answers(scratch / "indices", kShared, expected), expected);
  // One of another id, or that leads to itself, is as none: lines stay, names go.
  const std::string whole = ReadFile(directory / "shared.debug");
  std::string other = whole;
  const std::size_t note = other.find(std::string_view("GNU\0", 4));
  ASSERT_NE(note, std::string::npos);
  other[note + 4] ^= 1;
  int round = 0;
  for (const std::string& bytes :
       {other, ReadFile(directory / "a.so"), whole.substr(0, whole.size() / 2)}) {
    WriteFile(directory / "shared.debug", bytes);
    const auto without =
        Answers(scratch / ("without" + std::to_string(++round)), kShared, expected);
    EXPECT_NE(without, expected);
    const auto& [address, answer] = *without.begin();
    EXPECT_EQ(answer.line, expected.at(address).line);
  }
}

TEST_F(Index, UnderAnothersNameIsNotBelieved) {
  const Recipe& other = RecipeNamed("ElfFixedWithoutId");
  TARVO_MAKE_OR_SKIP(directory, other);
  const auto expected = SymbolizerAnswers(directory, other.file);
  EXPECT_EQ(Resolve(), addresses_);
  const fs::path own = IndexFile();
  EXPECT_EQ(Answers(scratch_ / "others", other, expected), expected);
  fs::copy_file(scratch_ / "others" / ListDirectory(scratch_ / "others").front(), own,
                fs::copy_options::overwrite_existing);
  EXPECT_EQ(Resolve(), addresses_);
}

TEST_F(Index, IsMadeByManyProcessesAtOnce) {
  constexpr int kProcesses = 4;
  std::vector<pid_t> children;
  for (int i = 0; i < kProcesses; ++i) {
    children.push_back(fork());
    if (children.back() == 0) _exit(Answers(indices_, recipe_, addresses_) == addresses_ ? 0 : 1);
  }
  for (const pid_t child : children) {
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  }
  EXPECT_EQ(ListDirectory(indices_).size(), 1U);
}

TEST_F(Index, ThatCannotBeWrittenIsSaidOnce) {
  WriteFile(scratch_ / "file", "");
  indices_ = scratch_ / "file/below";
  EXPECT_EQ(Resolve(), addresses_);
  EXPECT_TRUE(errors_.contains("The index directory " + indices_.string() +
                               " cannot be used: Not a directory."))
      << errors_;
  EXPECT_EQ(std::ranges::count(errors_, '\n'), 1) << errors_;
}

TEST_F(Index, FailureIsRememberedUntilTheLimitsChange) {
#ifdef TARVO_SANITIZED
  GTEST_SKIP() << "a sanitized indexer has no memory limit";
#endif
  const std::vector<std::string> tight = {"--g_symbolIndexMemory=1"};
  EXPECT_EQ(Resolve(tight), addresses_);
  EXPECT_TRUE(errors_.contains("memory limit 1 MiB, time limit 600 s")) << errors_;
  auto files = ListDirectory(indices_);
  ASSERT_EQ(files.size(), 1U);
  EXPECT_TRUE(files[0].ends_with(".failed")) << files[0];
  const auto time = fs::last_write_time(IndexFile());
  EXPECT_EQ(Resolve(tight), addresses_);
  EXPECT_EQ(fs::last_write_time(IndexFile()), time);
  EXPECT_EQ(Resolve(), addresses_);
  EXPECT_EQ(errors_, "");
  files = ListDirectory(indices_);
  EXPECT_TRUE(
      std::ranges::any_of(files, [](const auto& name) { return name.ends_with(".index"); }));
}

// A package of so many units that they do not fit into memory stands for all that break the
// indexer.
TEST_F(Index, FailureIsForgottenWhenAPartIsReplaced) {
#ifdef TARVO_SANITIZED
  GTEST_SKIP() << "a sanitized indexer has no memory limit";
#endif
  TARVO_MAKE_OR_SKIP(directory, RecipeNamed("ElfSplit"));
  const fs::path package = scratch_ / "main.dwp";
  std::string units;
  for (int i = 0; i < 200'000; ++i)  // size, version 5, of a split unit, 8 bytes an address
    units += std::string("\x11\0\0\0\5\0\5\x8", 8) + std::string(13, '\0');
  WriteFile(scratch_ / "units", units);
  ASSERT_EQ(RunProgram({"/usr/lib/llvm-19/bin/llvm-objcopy", "--update-section",
                        ".debug_info.dwo=" + (scratch_ / "units").string(), directory / "main.dwo",
                        package})
                .errors,
            "");
  fs::copy(directory / "main", scratch_ / "main");
  const auto resolve = [&] {
    testing::internal::CaptureStderr();
    const auto host = StartHost(indices_, {"--g_symbolIndexMemory=64"});
    (void)Ask(BindReader(*host), scratch_ / "main", "x86_64", 0x1140);
    return testing::internal::GetCapturedStderr();
  };
  EXPECT_TRUE(resolve().contains("No index for the debug file"));
  const auto time = fs::last_write_time(IndexFile());
  (void)resolve();
  EXPECT_EQ(ListDirectory(indices_).size(), 1U);
  EXPECT_EQ(fs::last_write_time(IndexFile()), time) << "not tried again for nothing";
  fs::remove(package);
  (void)resolve();
  EXPECT_TRUE(std::ranges::any_of(ListDirectory(indices_),
                                  [](const auto& name) { return name.ends_with(".index"); }));
}

// A program that runs for long has the file open.
TEST(MissingPart, IsTakenUpByWhoHasTheFileOpen) {
  const Recipe& split = RecipeNamed("ElfSplit");
  TARVO_MAKE_OR_SKIP(directory, split);
  const auto addresses = SymbolizerAnswers(directory, split.file);
  const auto& [address, expected] = *std::ranges::find_if(
      addresses, [](const auto& entry) { return !entry.second.callers.empty(); });
  const TemporaryDirectory scratch;
  const auto host = StartHost(scratch / "indices");
  fs::rename(directory / "main.dwo", scratch / "aside");
  EXPECT_EQ(Ask(BindReader(*host), directory / "main", "x86_64", address).callers, "");
  fs::rename(scratch / "aside", directory / "main.dwo");
  EXPECT_EQ(Ask(BindReader(*host), directory / "main", "x86_64", address), expected);
}

TEST_F(Index, MissingProgramIsNamed) {
  const fs::path module = scratch_ / "symbolreader.so";
  fs::copy(SYMBOLREADER_MODULE, module);
  testing::internal::CaptureStderr();
  const auto host = StartHost(indices_, {}, module);
  const std::string error =
      Ask(BindReader(*host), Make(recipe_) / recipe_.bundle, "x86_64", 0x1000).error;
  const std::string reason = "tarvo-symbol-indexer did not start: No such file or directory.";
  EXPECT_TRUE(error.ends_with((scratch_ / reason).string())) << error;
  testing::internal::GetCapturedStderr();
}

TEST(IndexDirectory, DefaultsToTheUsersCache) {
  const Recipe& recipe = RecipeNamed("ElfPie");
  TARVO_MAKE_OR_SKIP(directory, recipe);
  const TemporaryDirectory scratch;
  const std::string home = (scratch / "home").string();
  struct Case {
    std::string cache;
    std::string_view expected;
  };
  for (const Case& test :
       {Case{"", "home/.cache/tarvo/symbols"}, Case{"relative", "home/.cache/tarvo/symbols"},
        Case{(scratch / "cache").string(), "cache/tarvo/symbols"}}) {
    setenv("HOME", home.c_str(), 1);
    setenv("XDG_CACHE_HOME", test.cache.c_str(), 1);
    const auto host = StartHost("");
    (void)Ask(BindReader(*host), directory / recipe.bundle, "x86_64", 0x1000);
    EXPECT_EQ(ListDirectory(scratch / test.expected).size(), 1U) << test.cache;
  }
}

std::vector<IndexBlock> BlocksAt(const std::vector<std::uint64_t>& starts) {
  std::vector<IndexBlock> blocks;
  for (const std::uint64_t start : starts) blocks.push_back({start, 0});
  return blocks;
}

// Wherever blocks lie, the search begins where it must.
TEST(BlockTable, FindsWhatASearchByHalvesDoes) {
  constexpr std::uint64_t kHighest = std::numeric_limits<std::uint64_t>::max();
  std::vector<std::vector<std::uint64_t>> lists = {
      {}, {0}, {5}, {0, kHighest}, {7, 7, 7, 7, 7}, {1, 2, 3, kHighest - 1, kHighest, kHighest}};
  std::mt19937_64 draw(1);
  for (const int shift : {0, 20, 44, 58}) {
    lists.emplace_back(1000);
    for (std::uint64_t& number : lists.back()) number = draw() >> shift;
    for (std::size_t i = 0; i < 500; ++i) lists.back()[i] >>= 5;  // most are close together
    std::ranges::sort(lists.back());
  }
  for (const auto& list : lists) {
    const std::vector<IndexBlock> blocks = BlocksAt(list);
    const BlockTable table(blocks);
    std::vector<std::uint64_t> asked = {0, 1, kHighest / 2, kHighest};
    for (const std::uint64_t number : list)
      asked.insert(asked.end(), {number - 1, number, number + 1});
    for (const std::uint64_t number : asked) {
      const auto count = std::ranges::upper_bound(list, number) - list.begin();
      const IndexBlock* last = count == 0 ? nullptr : &blocks[static_cast<std::size_t>(count) - 1];
      EXPECT_EQ(table.Find(number), last) << number << " of " << list.size();
    }
  }
  std::vector<std::uint64_t> damaged(1000);  // wrong answers, but none outside
  std::ranges::generate(damaged, [&] { return draw(); });
  const std::vector<IndexBlock> blocks = BlocksAt(damaged);
  const BlockTable table(blocks);
  for (const std::uint64_t number : damaged) {
    const IndexBlock* found = table.Find(number);
    EXPECT_TRUE(found == nullptr || (found >= blocks.data() && found <= &blocks.back()));
  }
}

}  // namespace
}  // namespace tarvo::symbolreader
