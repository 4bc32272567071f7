// The list of symbols to ask for.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "support/files.h"
#include "toolkit/resolve/summary/lacks_document.h"
#include "toolkit/resolve/summary/missing_symbols.h"

namespace tarvo::toolkit {
namespace {

constexpr auto kHandler = ModuleOwner::CrashHandler;
constexpr auto kSystem = ModuleOwner::System;

class MissingSymbolsTest : public testing::Test {
 protected:
  void Write(const std::filesystem::path& name, const std::string& text) {
    std::filesystem::create_directories((folder_ / name).parent_path());
    std::ofstream(folder_ / name) << text;
  }
  /// Each is written into a document and read back, as a report that is left alone is.
  void AddReports(int count, const Lacks& lacks) {
    for (int i = 0; i < count; ++i) lacks_.AddReport(ReadLacks(LacksDocument(lacks)));
  }
  [[nodiscard]] Url Place(const char* name) const {
    return Url::FromSystemPath((folder_ / name).string());
  }

  TemporaryDirectory folder_;
  Lacks lacks_;
};

Lacks Of(const std::vector<std::pair<Lacks::Lack, Lacks::Count>>& entries) {
  Lacks lacks;
  for (const auto& [lack, count] : entries) {
    Lacks::Count& own = lacks.Add(lack, count.frames);
    own.bundle = count.bundle;
    own.owner = count.owner;
    own.reason = count.reason;
  }
  return lacks;
}

// By reports, not by frames; two modules of one report are one report; whose nobody can be asked
// for stands below however many want it.
TEST_F(MissingSymbolsTest, IsAListForAMail) {
  Write("archives/R16-1_dsym.zip", "");
  Write("archives/R16-2_dsym.zip", "");
  Write("archives/X_dsym.zip", "");
  Write(
      "cache/R16-1/tarvo-symbols.json",
      R"({"Version": 1, "Bundles": [{"Bundle": "a.dsym", "Module": "scene", "Platform": "linux"}]})");
  AddReports(3, Of({{{"windows", "R16-1", "scene.exe", FrameOutcome::NoBundle},
                     {.frames = 2, .bundle = "application.app.dsym"}},
                    {{"windows", "R16-1", "r.dll", FrameOutcome::WrongSymbols},
                     {.frames = 1, .bundle = "r.dll.dsym", .reason = "found 1, expected 2"}}}));
  AddReports(1, Of({{{"linux", "R16-9", "x\x1b.so", FrameOutcome::NoArchive},
                     {.frames = 1000, .bundle = "x\x1b.so.dsym"}}}));
  AddReports(2, Of({{{"linux", "R16-2", "b", FrameOutcome::UnreadableArchive},
                     {.frames = 1, .bundle = "b.dsym", .reason = "it is cut off"}}}));
  AddReports(9, Of({{{"linux", "", "libc.so.6", FrameOutcome::ModuleIncomplete},
                     {.frames = 9, .bundle = "libc.so.6.dsym", .owner = kSystem}},
                    {{"linux", "R16-1", "crashhandler.so", FrameOutcome::NoBundle},
                     {.frames = 1, .bundle = "crashhandler.so.dsym", .owner = kHandler}},
                    {{"", "", "?", FrameOutcome::ModuleNotListed}, {.frames = 1}},
                    {{"linux", "", "plug-in", FrameOutcome::ModuleIncomplete}, {.frames = 1}}}));
  AddReports(1, Of({{{"linux", "R16-2", "crashhandler.so", FrameOutcome::NoArchive},
                     {.frames = 80, .bundle = "crashhandler.so.dsym", .owner = kHandler}}}));
  ArchiveCache archives({Place("archives")}, Place("cache"));
  const std::string folder = (folder_ / "archives").string();
  EXPECT_EQ(MissingText(FindMissing(lacks_, archives)),
            R"(Symbols to ask for, those that most reports want first:
  R16-1, windows: 3 reports, 9 frames
    wanted: R16-1_dsym.zip with
      application.app.dsym (scene.exe): 3 reports, 6 frames
      r.dll.dsym: 3 reports, 3 frames; symbols of another build, system or module
        (found 1, expected 2)
    there is: )" +
                folder + R"(/R16-1_dsym.zip with a.dsym (scene, linux)
  R16-2, linux: 2 reports, 2 frames
    wanted: R16-2_dsym.zip with
      b.dsym: 2 reports, 2 frames
    there is: )" +
                folder + R"(/R16-2_dsym.zip, and: it is cut off
  R16-9, linux: 1 report, 1000 frames
    wanted: R16-9_dsym.zip with
      x\x1b.so.dsym: 1 report, 1000 frames
    there is: no archive of this build, but of R16-1, R16-2
  no build stated, linux: 9 reports, 9 frames
    wanted: the build of these modules (--build names that of reports)
      plug-in: 9 reports, 9 frames
Not to be asked for: of the system, of the crash handler, or not listed in its report:
  crashhandler.so, linux: 10 reports, 89 frames: symbols missing in the archive
  libc.so.6, linux: 9 reports, 81 frames: no build in the report
  ?: 9 reports, 9 frames: module not listed in the report
)");
}

TEST(ModuleOwnerTest, TellsOwnAndSystemModulesApart) {
  const struct {
    const char* name;
    const char* path;
    const char* build;
    ModuleOwner owner;
  } kCases[] = {
      {"libc.so.6", "", "", kSystem},
      {"libfoo.so", "/usr/lib/x86_64-linux-gnu/libfoo.so", "", kSystem},
      {"libfoo.so", "/usr/lib/app/libfoo.so", "R16", ModuleOwner::Application},
      {"libfoo.so", "/opt/app/libfoo.so", "", ModuleOwner::Application},
      {"KERNEL32.DLL", "", "", kSystem},
      {"some.dll", "c:\\windows\\system32\\some.dll", "", kSystem},
      {"crashhandler.so", "/opt/app/modules/crashhandler.so", "R16", kHandler},
      {"libtarvo.so.1", "", "", kHandler},
  };
  for (const auto& [name, path, build, owner] : kCases)
    EXPECT_EQ(OwnerOf(name, path, build), owner) << name << ' ' << path;
}

}  // namespace
}  // namespace tarvo::toolkit
