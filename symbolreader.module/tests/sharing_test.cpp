// Open symbol files: shared by readers and threads, let go when there are too many.

#include <array>
#include <thread>

#include "configuration.h"
#include "connection.h"
#include "debug_files.h"
#include "index/name_memo.h"
#include "symbol_file_cache.h"

// Of this program's copy of the module.
tarvo::Connection g_tarvo;
tarvo::CpuYieldDelegate g_CpuYieldDelegate = nullptr;

namespace tarvo::symbolreader {
namespace {

TEST(Sharing, ThreadsResolveAtOnce) {
  constexpr int kThreads = 4;
  for (const std::string_view name : {"ElfPie", "MachOExecutable", "PePdb"}) {
    const Recipe& recipe = RecipeNamed(name);
    TARVO_MAKE_OR_SKIP(directory, recipe);
    const auto expected = SymbolizerAnswers(directory, recipe.file);
    const TemporaryDirectory scratch;
    for (const char* indices : {"indices", "/dev/null/none"}) {
      const auto host = StartHost(scratch / indices);
      std::vector<int> differences(kThreads);
      {
        std::vector<std::jthread> threads;
        for (int& difference : differences) {
          threads.emplace_back([&] {
            const auto reader = BindReader(*host);
            for (const auto& [address, answer] : expected)
              difference += !answer.function.empty() && Ask(reader, directory / recipe.bundle,
                                                            recipe.architecture, address) != answer;
          });
        }
      }
      EXPECT_EQ(differences, std::vector<int>(kThreads)) << name << " " << indices;
    }
  }
}

TEST(Sharing, IsBoundedInNumberAndBytes) {
  const TemporaryDirectory scratch;
  const auto host = StartHost(scratch / "indices");
  // This program's copy of the module.
  Registration registration;
  RegisterConfiguration(registration);
  g_tarvo.framework = &host->Services();
  std::vector<std::string> bundles;
  std::vector<std::string> architectures;
  for (const std::string_view name : {"ElfPie", "ElfFixedWithoutId", "ElfArm64"}) {
    const Recipe& recipe = RecipeNamed(name);
    TARVO_MAKE_OR_SKIP(directory, recipe);
    bundles.push_back((directory / recipe.bundle).string());
    architectures.emplace_back(recipe.architecture);
  }
  const auto open = [&](SymbolFileCache& cache, std::size_t which) {
    const auto file = cache.Open(bundles[which], {.architecture = architectures[which]});
    EXPECT_TRUE(file) << file.GetError().Text().View();
    return file ? (*file).get() : nullptr;
  };
  SymbolFileCache two(2);
  const SymbolFile* first = open(two, 0);
  open(two, 1);
  EXPECT_EQ(open(two, 0), first) << "still shared";
  open(two, 2);  // pushes out the one that was used longest ago
  EXPECT_EQ(two.Held().files, 2U);
  EXPECT_EQ(open(two, 0), first);
  EXPECT_FALSE(two.Open(bundles[0], {.architecture = "arm64"})) << "and errors have a place too";
  EXPECT_EQ(two.Held().files, 2U);

  SymbolFileCache small(10, 1);
  for (const std::size_t which : {0U, 1U, 2U, 1U}) open(small, which);
  EXPECT_EQ(small.Held().files, 1U);
  EXPECT_EQ(small.Held().bytes, std::filesystem::file_size(bundles[1]));
  small.Clear();
  EXPECT_EQ(small.Held().files + small.Held().bytes, 0U);
  g_tarvo.framework = nullptr;
}

TEST(Sharing, AReplacedFileIsReadAnew) {
  const Recipe& elf = RecipeNamed("ElfPie");
  TARVO_MAKE_OR_SKIP(directory, elf);
  const TemporaryDirectory scratch;
  const auto host = StartHost(scratch / "indices");
  const auto bundle = scratch / "module.dsym";
  WriteFile(bundle, "nothing yet");
  EXPECT_NE(Ask(BindReader(*host), bundle, "x86_64", 0).error, "");
  std::filesystem::copy_file(directory / elf.bundle, bundle,
                             std::filesystem::copy_options::overwrite_existing);
  const auto addresses = SymbolizerAnswers(directory, elf.file);
  const auto& [address, expected] = *std::next(addresses.begin(), std::ssize(addresses) / 2);
  EXPECT_EQ(Ask(BindReader(*host), bundle, "x86_64", address), expected);
}

}  // namespace
// Files of one thread have their names in one memo, in which places are few.
TEST(NameMemo, NeverGivesTheNameOfAnotherFileOrPlace) {
  NameMemo memo;
  const std::array<std::uint32_t, 3> files = {NewIndexNumber(), NewIndexNumber(), NewIndexNumber()};
  std::size_t made = 0;
  std::vector<std::string> wrong;
  for (int round = 0; round < 2; ++round) {
    for (std::uint32_t number = 1; number <= 6 * NameMemo::kPlaces; ++number) {
      for (const std::uint32_t file : files) {
        const std::uint32_t asked = (number + 2) / 3;  // three times each
        std::string name = std::to_string(file) + " " + std::to_string(asked);
        // Together several times what the memo holds.
        name.resize(asked % 7 == 0 ? NameMemo::kLongestName + 1 : 100, 'x');
        const String text = memo.Text(file, asked, [&] { return ++made, std::string_view(name); });
        if (text.View() != name) wrong.push_back(name);
      }
    }
  }
  EXPECT_EQ(wrong, std::vector<std::string>());
  EXPECT_LT(made, 2 * 6 * NameMemo::kPlaces * files.size() / 2)
      << "a name that is asked for again is there";
}

}  // namespace tarvo::symbolreader
