// From what a report says of a build to the archive and the bundle of its symbols.

#include <cmath>
#include <limits>

#include "crashlog/base/property_names.h"
#include "crashlog/crash_log.h"
#include "crashlog/resolving/application_info.h"
#include "crashlog/symbols/symbol_archive_search.h"
#include "crashlog/symbols/symbol_cache.h"
#include "resolve_fixture.h"

tarvo::Connection g_tarvo;
tarvo::CpuYieldDelegate g_CpuYieldDelegate = nullptr;

namespace tarvo::crashhandler {
namespace {

TEST(BuildSearchKeyTest, EachCharacterThatIsNoDigitTakesTwoBehindItAlong) {
  const std::pair<std::string, const char*> cases[] = {
      {"", ""},
      {"1234", "1234"},
      {"abc", ""},
      {"B12345", "345"},
      {"RB12345", "5"},
      {"12345R", "12345"},
      {"123R4", "123"},
      {"2024.117", "20247"},
      {"1.2.3.4", "1"},
      {"R15.6-4213", "3"},
      {"9-12345", "9345"},
      {"1234-5.678", "1234"},
      {std::string(1'000'000, 'x') + std::string(2'000'001, '7'), "7"},
  };
  for (const auto& [build, key] : cases)
    EXPECT_EQ(BuildSearchKey(build), key) << build.substr(0, 20);
}

TEST(ApplicationBundleNameTest, FollowsTheVersion) {
  struct Case {
    const char* version;  ///< null: there is none
    const char* module;
    std::uint64_t base;
    const char* name;
    std::uint64_t newBase;
  };
  constexpr std::uint64_t kSlide = 0x100000000;
  const Case cases[] = {
      {nullptr, "kernel_app", kSlide + 7, "kernel_app.app", 7},
      {"", "kernel_app", kSlide, "kernel_app.app", 0},
      {"abc", "Scholar", 0, "application.app", 0 - kSlide},
      {"15.6x", "other", 1, "application.app", 1 - kSlide},
      {"0", "other", kSlide, "application.app", 0},
      {"-0.0", "other", kSlide, "application.app", 0},
      {"1e999", "other", kSlide, "application.app", 0},
      {"15.6", "other", kSlide, "application.app", 0},
      {" 16\t", "Kernel_app", kSlide, "application.app", 0},
      {"inf", "other", kSlide, "application.app", 0},
      {"15.5", "SCHOLAR", kSlide, "Pallado Pebble.app", 0},
      {"15.59999999999", "My pebble 3", kSlide, "Pallado Pebble.app", 0},
      {"15.5", "a tImBeR", kSlide, "Pallado Pebble.app", 0},
      {"15.5", "harbor node", kSlide, "Pallado Pebble.app", 0},
      {"15.5", "harbor_node", kSlide, "Pallado.app", 0},
      {"15.5", "featherweight", kSlide, "Pallado Pebble.app", 0},
      {"-20", "kernel_app", kSlide, "Pallado.app", 0},
      {"nan", "kernel_app", kSlide, "Pallado.app", 0},
  };
  for (const Case& test : cases) {
    DataDictionary info;
    if (test.version != nullptr) info.Set("PALLADO_Version", test.version);
    DataDictionary crashLog;
    crashLog.Set(property::kApplicationInfo, info);
    String name = test.module;
    std::uint64_t base = test.base;
    ApplicationBundleName(crashLog, name, base);
    EXPECT_EQ(name, test.name) << test.version << " " << test.module;
    EXPECT_EQ(base, test.newBase) << test.version << " " << test.module;
  }
  EXPECT_EQ(ApplicationVersion({}), 15.6);
}

class SymbolArchiveTest : public ResolveFixture {
 protected:
  /// Where the archive of `build` is below the archives, "" when it is not found, else the error.
  std::string Find(const String& build) {
    ArchiveDirectory archives(Place("archives"));
    const Result<Url> archive = FindSymbolArchive(build, archives);
    if (!archive) return archive.GetError().Text().ToStdString();
    if (archive->IsEmpty()) return "";
    return std::filesystem::path(archive->SystemPath().ToStdString())
        .lexically_relative(folder_ / "archives");
  }
};

TEST_F(SymbolArchiveTest, IsFoundWhereTheSearchLooks) {
  for (const char* file :
       {"flat_dsym.zip", "r15/7345/builds/B12345_dsym.zip", "r15/x7345/builds/B12346_dsym.zip",
        "B777/builds/B12777_dsym.zip", "r15/345/B99345_dsym.zip", "a/b/c/d/DEEP_DSYM.ZIP",
        ".hidden/h_dsym.zip"})
    WriteFile(std::string("archives/") + file, "");
  std::filesystem::create_directories(folder_ / "archives/r15/1/builds/B001_dsym.zip");
  std::filesystem::create_directory_symlink(folder_ / "archives/a", folder_ / "archives/r15/link");
  struct Case {
    const char* build;
    const char* hierarchical;
    const char* recursive;
  };
  const Case cases[] = {
      {"flat", "flat_dsym.zip", "flat_dsym.zip"},
      {"B12345", "r15/7345/builds/B12345_dsym.zip", "r15/7345/builds/B12345_dsym.zip"},
      {"B12346", "", "r15/x7345/builds/B12346_dsym.zip"},  // "346" is in no name
      {"B12777", "", "B777/builds/B12777_dsym.zip"},       // a level too high
      {"B99345", "", "r15/345/B99345_dsym.zip"},           // not in "builds"
      {"deep", "", "a/b/c/d/DEEP_DSYM.ZIP"},               // and not met through the link
      {"b12345", "", "r15/7345/builds/B12345_dsym.zip"},
      {"h", "", ".hidden/h_dsym.zip"},
      {"B001", "", ""},  // a directory of that name
      {"..", "", ""},
      {".", "", ""},
      {"", "", ""},
      {"a/b/c/d/DEEP", "", ""},
  };
  for (const Case& test : cases) {
    g_optimizeSymbolFileSearch = true;
    EXPECT_EQ(Find(test.build), test.hierarchical) << test.build;
    g_optimizeSymbolFileSearch = false;
    EXPECT_EQ(Find(test.build), test.recursive) << test.build;
  }
}

TEST_F(SymbolArchiveTest, ADirectoryThatCannotBeListedIsAnError) {
  std::filesystem::remove(folder_ / "archives");
  const std::string error =
      "Could not list \"" + Text("archives") + "\": No such file or directory";
  for (const bool hierarchical : {true, false}) {
    g_optimizeSymbolFileSearch = hierarchical;
    EXPECT_EQ(Find("B1"), error);
  }
}

class SymbolCacheTest : public ResolveFixture {
 protected:
  /// The symbol file below the cache, or the error's text.
  std::string Get(const String& module, const String& build) {
    const Result<Url> file =
        CrashLog::GetSymbolFile(module, build, "x86_64", Place("archives"), Place("cache"));
    if (file)
      return std::filesystem::path(file->SystemPath().ToStdString())
          .lexically_relative(folder_ / "cache");
    EXPECT_EQ(file.GetError().Where().path, "crashhandler.module/source/crashlog");
    EXPECT_EQ(file.GetError().ClassId(), Error::kFile);
    EXPECT_EQ(file.GetError().Url(), Place("archives"));
    return file.GetError().Text().ToStdString();
  }
  std::string NotFound(const std::string& module, const std::string& build) {
    return "Symbol file " + Text("cache/" + build + "/" + module + ".dsym") + " for " + build +
           " not found.";
  }
};

TEST_F(SymbolCacheTest, ABundleIsTakenFromTheFirstPlaceThatHasIt) {
  WriteArchive("archives/B1_dsym.zip",
               {"file.dsym", "Release/file.dsym/", "Release/a.dsym/x", "Pebble/a.dsym/x",
                "Pebble/b.dsym/x", "Release/plain.dsym", "Pebble/plain.dsym", "apple.dSYM/x",
                "Release/apple2.dSYM/x", "Release/both.dsym/", "both.dSYM", "sub/in.dsym/x"});
  const std::pair<const char*, std::string> cases[] = {
      {"file", "B1/file.dsym"},
      {"a", "B1/Release/a.dsym"},
      {"b", "B1/Pebble/b.dsym"},
      {"plain", NotFound("plain", "B1")},  // a file, which counts at the top only
      {"apple", "B1/apple.dSYM"},
      {"apple2", "B1/Release/apple2.dSYM"},
      {"both", "B1/Release/both.dsym"},
      {"A", NotFound("A", "B1")},
      {"sub/in", NotFound("sub/in", "B1")},
      {"..", NotFound("..", "B1")},
  };
  for (const auto& [module, expected] : cases) {
    EXPECT_EQ(Get(module, "B1"), expected) << module;
    std::filesystem::remove(folder_ / "archives/B1_dsym.zip");  // it is not asked for again
  }
  EXPECT_EQ(framework_.output.TakeLines(), Lines());
}

TEST_F(SymbolCacheTest, ABuildNeverLeadsOutOfTheCache) {
  std::filesystem::create_directories(folder_ / "cache/B1");
  WriteFile("m.dsym", "");
  WriteFile("cache/m.dsym", "");
  for (const std::string build : {"..", ".", "", "B1/..", "../cache", "/"}) {
    EXPECT_EQ(Get("m", String(build)), "Could not find symbol archive for " + build + ".") << build;
  }
  EXPECT_EQ(Get("m", String(std::string("B1\0", 3))),
            std::string("Could not find symbol archive for B1\0.", 38));
  EXPECT_EQ(Get("m", "B1"), NotFound("m", "B1"));  // an empty directory counts as extracted
}

TEST_F(SymbolCacheTest, OneObjectSearchesAndExtractsABuildOnce) {
  WriteFile("archives/B1_dsym.zip", "no archive");
  SymbolCache cache(Place("archives"), Place("cache"));
  const std::string damaged =
      "Could not extract \"" + Text("archives/B1_dsym.zip") + "\": Unrecognized archive format";
  EXPECT_EQ(cache.GetSymbolFile("a", "B1").bundle.GetError().Text(), damaged);
  EXPECT_FALSE(cache.GetSymbolFile("a", "B2").bundle);
  WriteArchive("archives/B1_dsym.zip", {"a.dsym"});
  WriteArchive("archives/B2_dsym.zip", {"a.dsym"});
  EXPECT_EQ(cache.GetSymbolFile("b", "B1").bundle.GetError().Text(), damaged);
  EXPECT_FALSE(cache.GetSymbolFile("a", "B2").bundle);
  EXPECT_EQ(Get("a", "B1"), "B1/a.dsym");  // another resolve finds what came meanwhile
}

/// An archive whose extraction takes as long as the test wants, by the test's clock.
class SlowArchive final : public Counted<ReadArchive> {
 public:
  SlowArchive(TestClock& clock, int seconds) : clock_(clock), seconds_(seconds) {}
  Result<void> Open(const Url&) override { return {}; }
  Result<void> Extract(const Url& directory) override {
    constexpr int kStep = 5;
    for (int left = seconds_; left > 0; left -= kStep) {
      clock_.LetOthersLook();
      clock_.Advance(std::chrono::seconds(std::min(left, kStep)));
    }
    clock_.LetOthersLook();
    std::filesystem::create_directories(directory.Append("m.dsym").SystemPath().ToStdString());
    return {};
  }

 private:
  TestClock& clock_;
  const int seconds_;
};

TEST_F(SymbolCacheTest, LongExtractionsTellOfTheirProgress) {
  const std::string archive = Text("archives/B1_dsym.zip");
  WriteFile("archives/B1_dsym.zip", "");
  const Lines progress = {"Currently extracting " + archive + "  (10.0 s so far)",
                          "Currently extracting " + archive + "  (20.0 s so far)",
                          "Extracting " + archive + " took 25.0 s"};
  const Lines justLong = {progress[0], "Extracting " + archive + " took 10.0 s"};
  const std::tuple<int, int, Lines> cases[] = {
      {25, 1, progress}, {25, 2, progress}, {25, 0, {}}, {9, 2, {}}, {10, 1, justLong}};
  for (const auto& [seconds, level, lines] : cases) {
    g_crashlogResolveDiagnosticOutput = level;
    framework_.makeArchive = [&, length = seconds] {
      return Make<SlowArchive>(framework_.clock, length);
    };
    EXPECT_EQ(Get("m", "B1"), "B1/m.dsym");
    EXPECT_EQ(framework_.output.TakeLines(), lines) << seconds << " seconds, level " << level;
    std::filesystem::remove_all(folder_ / "cache");
  }
}

}  // namespace
}  // namespace tarvo::crashhandler
