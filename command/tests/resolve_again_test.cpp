// What a second run of `tarvo resolve` does with what a first one has left, and where.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <set>
#include <string>

#include "resolve_fixture.h"

namespace tarvo {
namespace {

TEST_F(ResolveOriginsTest, LeavesAloneWhatIsUpToDate) {
  const auto age = [&](const std::string& file, int hours) {
    fs::last_write_time(folder_ / file,
                        fs::file_time_type::clock::now() - std::chrono::hours(hours));
  };
  const auto counts = [&] {
    const std::string output =
        WithoutCalls(Resolve({"reports", "--missing-only", "--summary", "summary"}).output);
    return output.substr(0, output.find('\n'));
  };
  const auto missing = [&] {
    const std::string summary = ReadFile(folder_ / "summary");
    return summary.substr(std::min(summary.size(), summary.find("\"Missing\": [\n")));
  };
  const std::string archive = "archives/r15/y/builds/R15.5-400_dsym.zip";  // of the macOS report
  const std::string whole = ReadFile(folder_ / archive);
  EXPECT_EQ(counts(), "Reports: 4 read, 4 resolved, 0 failed");
  const std::string first = missing();
  EXPECT_NE(first, "");
  EXPECT_EQ(counts(), "Reports: 0 read, 0 resolved, 0 failed, 4 up to date");
  EXPECT_EQ(missing(), first) << "what is left alone is asked for all the same";
  // Times say nothing: `cp -p` and `rsync -t` keep them, others change them.
  age("reports/linux_bugreport.resolved.json", 10);
  age(archive, -1);
  Write("reports/linux_bugreport.txt", ReadFile(folder_ / "reports/linux_bugreport.txt") + "\n");
  fs::remove(folder_ / "reports/windows_bugreport.source");
  EXPECT_EQ(counts(), "Reports: 2 read, 2 resolved, 0 failed, 2 up to date");
  // A half copy, and its rest: neither loses what was known before.
  Write(archive, whole.substr(0, whole.size() / 2));
  age(archive, 9);
  EXPECT_EQ(counts(), "Reports: 1 read, 1 resolved, 0 failed, 3 up to date");
  Write(archive, whole);
  age(archive, 9);
  EXPECT_EQ(counts(), "Reports: 1 read, 1 resolved, 0 failed, 3 up to date");
  EXPECT_EQ(counts(), "Reports: 0 read, 0 resolved, 0 failed, 4 up to date");
  // An archive that cannot be unpacked for the machine's sake is tried again each time.
  fs::remove_all(folder_ / "cache");
  Write("cache/R15.5-400", "in the way");
  Resolve({"reports", "--force"});
  EXPECT_EQ(counts(), "Reports: 1 read, 1 resolved, 0 failed, 3 up to date");
  fs::remove(folder_ / "cache/R15.5-400");
  EXPECT_EQ(counts(), "Reports: 1 read, 1 resolved, 0 failed, 3 up to date");
  EXPECT_EQ(counts(), "Reports: 0 read, 0 resolved, 0 failed, 4 up to date");
}

// Nothing is written beside the reports, and none of two reports of one name is lost.
TEST_F(ResolveOriginsTest, OutcomesGoBelowAnotherDirectory) {
  for (const std::string report : {"mon/linux", "tue/linux", "tue/deep/windows"})
    Write(
        "share/" + report + "_bugreport.txt",
        ReadFile(folder_ / ("reports/" + report.substr(report.rfind('/') + 1) + "_bugreport.txt")));
  const auto files = [&](const char* directory) {
    std::set<std::string> found;
    for (const auto& entry : fs::recursive_directory_iterator(folder_ / directory))
      if (entry.is_regular_file()) found.insert(fs::relative(entry, folder_ / directory));
    return found;
  };
  const auto originals = files("share");
  const std::pair<Texts, Texts> cases[] = {
      {{"share"}, {"mon/linux", "tue/deep/windows", "tue/linux"}},
      {{"share/tue", "share/mon"}, {"mon/linux", "tue/deep/windows", "tue/linux"}},
      {{"share/mon/linux_bugreport.txt", "share/tue/linux_bugreport.txt"},
       {"mon/linux", "tue/linux"}},
      {{"share/tue/deep"}, {"windows"}},
  };
  for (auto [paths, expected] : cases) {
    fs::remove_all(folder_ / "out");
    paths.insert(paths.end(), {"--output", "out/new"});
    EXPECT_EQ(Resolve(paths).exitStatus, 0);
    std::set<std::string> outcomes;
    for (const std::string& report : expected)
      for (const char* suffix : {"_bugreport.resolved.json", "_bugreport.source"})
        outcomes.insert(report + suffix);
    EXPECT_EQ(files("out/new"), outcomes) << paths.front();
    paths.emplace_back("--missing-only");
    EXPECT_NE(Resolve(paths).output.find(std::to_string(expected.size()) + " up to date"),
              std::string::npos);
  }
  EXPECT_EQ(files("share"), originals);
  ASSERT_EQ(Resolve({"share/tue/deep"}).exitStatus, 0);
  for (const std::string name : {"windows_bugreport.resolved.json", "windows_bugreport.source"})
    EXPECT_EQ(ReadFile(folder_ / "out/new" / name), ReadFile(folder_ / "share/tue/deep" / name));
}

// What nothing can be read of fails once; what only this machine lacks is tried again.
TEST_F(ResolveOriginsTest, AReportKnownToBeBadFailsOnce) {
  const std::string good = ReadFile(folder_ / "reports/linux_bugreport.txt");
  Write("in/a_bugreport.txt", "Some other report {}");
  Write("in/b_bugreport.txt", "");
  Write("in/c_bugreport.txt.gz", "\x1f\x8b\x08");
  Write("in/d_bugreport.txt", good);
  Write("in/e_bugreport.txt", good);
  Write("in/e_bugreport.resolved.json/x", "a directory");
  const std::string bad = ", 3 known to be bad (--force tries them again)";
  const struct {
    const char* what;
    std::function<void()> change;
    Texts options;
    int status;
    std::string counts;
  } kCases[] = {
      {"the first time", [] {}, {"--strict"}, 1, "5 read, 1 resolved, 4 failed"},
      {"which notes nothing", [] {}, {}, 1, "4 read, 0 resolved, 4 failed, 1 up to date"},
      {"and again", [] {}, {}, 1, "1 read, 0 resolved, 1 failed, 1 up to date" + bad},
      {"the rest is well",
       [&] { fs::remove_all(folder_ / "in/e_bugreport.resolved.json"); },
       {},
       0,
       "1 read, 1 resolved, 0 failed, 1 up to date" + bad},
      {"on request", [] {}, {"--force"}, 1, "3 read, 0 resolved, 3 failed, 2 up to date"},
      {"another content",
       [&] { Write("in/a_bugreport.txt", good); },
       {},
       0,
       "1 read, 1 resolved, 0 failed, 2 up to date, 2 known to be bad (--force tries them again)"},
      {"and a worse one",
       [&] { Write("in/a_bugreport.txt", "TARVO_Crash_Report\n{\n\tx\n"); },
       {},
       1,
       "1 read, 0 resolved, 1 failed, 2 up to date, 2 known to be bad (--force tries them again)"},
  };
  for (const auto& [what, change, options, status, counts] : kCases) {
    change();
    Texts line = {"in", "--missing-only"};
    line.insert(line.end(), options.begin(), options.end());
    const auto end = Resolve(line);
    EXPECT_EQ(end.exitStatus, status) << what;
    const std::string output = WithoutCalls(end.output);
    EXPECT_EQ(output.substr(0, output.find('\n')), "Reports: " + counts) << what;
  }
  EXPECT_FALSE(fs::exists(folder_ / "in/a_bugreport.source")) << "it is of another content";
}

}  // namespace
}  // namespace tarvo
