// What `tarvo resolve` makes of reports of all origins, whole, damaged, packed and wide, with a
// symbolification that answers from a table.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>

#include "resolve_fixture.h"

namespace tarvo {
namespace {

/// The same of frames.
const std::regex kAddressText(",\\s*\"AddressText\": \"0x[0-9a-f]+\"");
/// A thread's or a frame's, behind the members that each of them has.
const std::regex kMark(",\\s*\"Crashed\": true");

const std::string kSpelledScene = "Spelled_Scene_20File";

TEST_F(ResolveOriginsTest, WritesWhatTheJobWritesForNormalizedReports) {
  for (const std::string& origin : kOrigins) {
    const std::string name = origin + "_bugreport.txt";
    Write("job/" + name, Tarvo({"normalize", "reports/" + name}).output);
  }
  const auto job =
      WithRecorder({"run", "net.tarvo.execution.crashlogresolve", "--g_crashlogDirectory=job",
                    "--g_symbolArchiveDirectory=archives", "--g_symbolTemporaryDirectory=cache"});
  ASSERT_EQ(job.exitStatus, 0) << job.errors;
  // What the job reads is spelled where no line could carry it; resolving puts the true name back.
  auto written = Files("job");
  for (auto& [name, content] : written)
    for (std::size_t at = 0; (at = content.find(kSpelledScene)) != std::string::npos;)
      content.replace(at, kSpelledScene.size(), "Scene File");
  const auto originals = Files("reports");
  for (const char* jobs : {"1", "4"}) {
    ASSERT_EQ(Resolve({"reports", "--jobs", jobs}).exitStatus, 0);
    auto expected = written;
    for (const auto& [name, content] : originals) expected[name] = content;
    auto resolved = Files("reports");
    std::string marks;
    for (auto& [name, content] : resolved) {
      const std::sregex_iterator found(content.begin(), content.end(), kMark);
      marks += std::to_string(std::distance(found, std::sregex_iterator()));
      content = std::regex_replace(WithoutOutcome(content), kMark, "");
      content = std::regex_replace(content, kAddressText, "");
    }
    EXPECT_EQ(resolved, expected);
    EXPECT_EQ(marks, "200000200200") << "files by name; the report of macOS tells of no exception";
    for (const auto& entry : fs::directory_iterator(folder_ / "reports"))
      if (entry.path().extension() != ".txt") fs::remove(entry.path());
  }
}

// In a file of results each report has its document as one line, in the order of the list whatever
// the order of builds, and one that failed has its reason.
TEST_F(ResolveOriginsTest, ResultsAreOneLineForEachReport) {
  Write("reports/bad_bugreport.txt", "Some other report {}");
  Write("reports/cut_bugreport.txt.gz", "\x1f\x8b\x08");
  Write("reports/cut_bugreport.txt", "");  // nothing is written for it to have the name of
  const auto hash = [&](const std::string& report) {
    return Run({"sh", "-c", "sha256sum < " + report}).output.substr(0, 64);
  };
  const auto first = Resolve({"reports", "--jobs", "2"});
  ASSERT_EQ(first.exitStatus, 1) << first.errors;
  auto files = Files("reports");
  const auto end = Resolve({"reports", "--results", "results", "--jobs", "2"});
  EXPECT_EQ(end.exitStatus, 1) << end.errors;
  std::istringstream lines(ReadFile(folder_ / "results"));
  static const std::regex kTime(R"("Time":"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ")");
  const std::pair<std::string, std::string> failures[] = {
      {R"(bad_bugreport.txt","Size":20)", "Wrong type of report: Some"},
      {R"(cut_bugreport.txt","Size":0)", "The file is empty."},
      {R"(cut_bugreport.txt.gz","Size":3)",
       R"(Could not unpack \"reports/cut_bugreport.txt.gz\": it is cut off)"}};
  for (const auto& [report, error] : failures) {
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(std::regex_replace(line, kTime, "TIME"),
              R"({"Outcome":{"Report":"reports/)" + report + R"(,TIME,"Hash":")" +
                  hash("reports/" + report.substr(0, report.find('"'))) + R"(","Error":")" + error +
                  R"("}})");
  }
  for (const std::string& origin : kOrigins) {
    std::string line;
    std::getline(lines, line);
    std::string document = files.at(origin + "_bugreport.resolved.json");
    document = std::regex_replace(document, std::regex("\n *"), "");
    EXPECT_EQ(line, std::regex_replace(document, std::regex("\": "), "\":")) << origin;
    EXPECT_NE(line.find(hash("reports/" + origin + "_bugreport.txt")), std::string::npos);
  }
  const std::string archives = files.at("macos_bugreport.resolved.json");
  EXPECT_TRUE(std::regex_search(
      archives,
      std::regex(R"re("Build": "R15.5-400",\s+"File": "archives/r15/y/builds/R15.5-400_)re"
                 R"re(dsym.zip",\s+"Identity": "zip-[0-9a-f]{32}")re")))
      << archives;
}

TEST_F(ResolveOriginsTest, ProgramsMayHaveAnyName) {
  std::string report = ReadFile(folder_ / "reports/tarvo_bugreport.txt");
  report.replace(report.find("crashdemo("), 9, ".pro:g");
  Write("any/r_bugreport.txt", report);
  ASSERT_EQ(Resolve({"any"}).exitStatus, 0);
  const auto files = Files("any");
  for (const char* name : {"\"ModuleName\": \".pro:g\",\n          \"FunctionName\"",
                           "\"ModuleName\": \".pro:g\",\n      \"Executable\": \"\""})
    EXPECT_NE(files.at("r_bugreport.resolved.json").find(name), std::string::npos) << name;
  EXPECT_NE(files.at("r_bugreport.source").find("\nModuleName = .pro:g\r\n"), std::string::npos);
}
TEST_F(ResolveOriginsTest, ReadsDamagedReportsAsFarAsTheyGo) {
  const std::string whole = ReadFile(folder_ / "reports/tarvo_bugreport.txt");
  // In the second thread's registers, and behind the modules.
  Write("cut/a_bugreport.txt", whole.substr(0, whole.find("Call_Stack_Thread_4712") + 60));
  std::string odd = whole;
  odd.insert(odd.find("\tException\n") + 14, "\t\t(odd\n");
  Write("cut/b_bugreport.txt", odd);
  Write("cut/none_bugreport.txt", "TARVO_Crash_Report\n{\n\tnonsense\n");
  const auto end = Resolve({"cut", "--summary", "summary.json"});
  EXPECT_EQ(end.exitStatus, 1) << "of one report nothing could be read";
  EXPECT_TRUE(WithoutCalls(end.output)
                  .starts_with("Reports: 3 read, 2 resolved, 1 failed, 2 damaged and resolved in "
                               "part (1 cut off)\n"))
      << end.output;
  const std::string cutLine = std::to_string(
      std::ranges::count(whole.substr(0, whole.find("Call_Stack_Thread_4712") + 60), '\n') + 1);
  EXPECT_NE(end.output.find("Damaged or cut off, and resolved as far as they go:\n"
                            "  cut/a_bugreport.txt: cut off in line " +
                            cutLine + "\n  cut/b_bugreport.txt: line "),
            std::string::npos)
      << end.output;
  EXPECT_NE(Tarvo({"show", "cut/a_bugreport.resolved.json"})
                .output.find("  Cut off      line " + cutLine + ": "),
            std::string::npos);
  EXPECT_NE(ReadFile(folder_ / "summary.json").find("\"Damaged\": 2,"), std::string::npos);
  auto files = Files("cut");
  const std::string cut = files.at("a_bugreport.resolved.json");
  EXPECT_NE(cut.find("\"__libc_start_main + 0x85\""), std::string::npos) << cut;
  EXPECT_NE(cut.find("\"Damage\": [\n    {\n      \"Line\": "), std::string::npos) << cut;
  // The line is that of the report, not of the normalized copy, which has one more before it.
  const auto line = std::to_string(std::ranges::count(odd.substr(0, odd.find("(odd")), '\n') + 1);
  const std::string& document = files.at("b_bugreport.resolved.json");
  EXPECT_NE(document.find("\"Line\": " + line +
                          ",\n      \"Expected\": \"ParseException found an error in line " + line +
                          " with (\""),
            std::string::npos)
      << document;
  EXPECT_EQ(Resolve({"cut/b_bugreport.txt"}).exitStatus, 0);
  const auto strict = Resolve({"cut/b_bugreport.txt", "--strict"});
  EXPECT_EQ(strict.exitStatus, 1);
  EXPECT_NE(strict.output.find("ParseException found an error in line"), std::string::npos);
}

/// The first frames' text in UTF-16.
std::string Utf16(const std::string& text, bool isBig) {
  std::string wide;
  for (const char c : text) {
    if (isBig) wide += '\0';
    wide += c;
    if (!isBig) wide += '\0';
  }
  return wide;
}

TEST_F(ResolveOriginsTest, ReadsPackedAndWideReports) {
  const std::string report = ReadFile(folder_ / "reports/linux_bugreport.txt");
  Write("packed/a_bugreport.txt", report);
  Write("packed/b_bugreport.txt", report);
  ASSERT_EQ(
      Run({"sh", "-c", "gzip packed/a_bugreport.txt && xz packed/b_bugreport.txt"}).exitStatus, 0);
  Write("packed/c_bugreport.txt", "\xFF\xFE" + Utf16(report, false));
  Write("packed/d_bugreport.txt", "\xFE\xFF" + Utf16(report, true));
  Write("packed/e_bugreport.txt", Utf16(report, false));
  // Cut off: what comes before the cut is read.
  const std::string gzip = ReadFile(folder_ / "packed/a_bugreport.txt.gz");
  const std::string xz = ReadFile(folder_ / "packed/b_bugreport.txt.xz");
  Write("packed/f_bugreport.txt.gz", gzip.substr(0, 9));
  Write("packed/g_bugreport.txt.gz", gzip.substr(0, gzip.size() - 90));
  Write("packed/h_bugreport.txt.xz", xz.substr(0, xz.size() - 90));
  Write("packed/i_bugreport.txt.gz", gzip + gzip);  // one behind the other: two reports in one
  const auto end = Resolve({"packed", "reports/linux_bugreport.txt"});
  EXPECT_EQ(end.exitStatus, 1);
  EXPECT_NE(end.output.find("Reports: 10 read, 9 resolved, 1 failed, 3 damaged"), std::string::npos)
      << end.output;
  EXPECT_NE(end.output.find("f_bugreport.txt.gz: Could not unpack: it is cut off\n"),
            std::string::npos)
      << end.output;
  const std::string expected =
      WithoutOutcome(ReadFile(folder_ / "reports/linux_bugreport.resolved.json"));
  const auto files = Files("packed");
  for (const char* name : {"a", "b", "c", "d", "e"})
    EXPECT_EQ(WithoutOutcome(files.at(std::string(name) + "_bugreport.resolved.json")), expected)
        << name;
  for (const char* name : {"g", "h"}) {
    const std::string& document = files.at(std::string(name) + "_bugreport.resolved.json");
    EXPECT_NE(document.find("\"Expected\": \"Could not unpack all of it: it is cut off\""),
              std::string::npos)
        << document;
    EXPECT_NE(document.find("\"ModuleName\": \"kernel_app\""), std::string::npos)
        << name << document;
  }
  EXPECT_EQ(Tarvo({"normalize", "packed/b_bugreport.txt.xz"}).output, report);
}

}  // namespace
}  // namespace tarvo
