// Reports of all origins as files: read, compared as a whole, cut short, and written back.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "connection.h"
#include "crashlog/base/property_names.h"
#include "crashlog/crash_log.h"
#include "crashlog/reading/report_reader.h"
#include "crashlog/writing/crash_log_writer.h"
#include "host/host_framework.h"
#include "services/clock.h"
#include "tree_text.h"

tarvo::Connection g_tarvo;
tarvo::CpuYieldDelegate g_CpuYieldDelegate = nullptr;

namespace tarvo::crashhandler {
namespace {

std::string DataPath(const std::string& name) { return TEST_DATA "/" + name; }

std::string ReadFile(const std::string& name) {
  std::ifstream file(DataPath(name), std::ios::binary);
  EXPECT_TRUE(file.is_open()) << name;
  return {std::istreambuf_iterator<char>(file), {}};
}

/// A file in memory that refuses what goes beyond `capacity`.
class MemoryFile final : public Counted<OutputFile> {
 public:
  explicit MemoryFile(std::size_t capacity = std::string::npos) : capacity_(capacity) {}

  Result<void> Write(std::string_view bytes) override {
    if (text_.size() + bytes.size() > capacity_)
      return Error::File({}, "No space left", Url::FromSystemPath("/full"));
    text_ += bytes;
    return {};
  }
  Result<void> Commit() override { return Error::IllegalState({}, "Not the writer's to do"); }
  [[nodiscard]] const std::string& Text() const { return text_; }

 private:
  std::size_t capacity_;
  std::string text_;
};

class Report : public testing::TestWithParam<const char*> {
 protected:
  [[nodiscard]] static std::string Name(const char* suffix) {
    return GetParam() + std::string(suffix);
  }
};

TEST_P(Report, GivesTheWholeTree) {
  const Result<DataDictionary> tree = ParseReport(ReadFile(Name("_bugreport.txt")));
  ASSERT_TRUE(tree) << tree.GetError().Text().View();
  EXPECT_EQ(TreeText(*tree), ReadFile(Name("_bugreport.json")));
}

TEST_P(Report, IsWrittenBackAndCanBeReadAgain) {
  const Result<DataDictionary> tree = ParseReport(ReadFile(Name("_bugreport.txt")));
  ASSERT_TRUE(tree);
  const auto file = Make<MemoryFile>();
  ASSERT_TRUE(WriteCrashLog(*tree, *file));
  EXPECT_EQ(file->Text(), ReadFile(Name("_bugreport.source")));

  const Result<DataDictionary> again = ParseReport(file->Text());
  ASSERT_TRUE(again) << again.GetError().Text().View();
  for (const String& section : {property::kComputerInfo, property::kException}) {
    const auto before = tree->FindAs<DataDictionary>(section);
    const auto after = again->FindAs<DataDictionary>(section);
    ASSERT_TRUE(before != nullptr && after != nullptr);
    EXPECT_EQ(TreeLine(*before), TreeLine(*after));
  }
}

/// The sections of a tree in order, without the mark that the reader gives to Linux reports.
std::vector<std::string> Sections(const DataDictionary& tree) {
  std::vector<std::string> sections;
  for (const auto& [key, value] : tree) {
    DataDictionary section;
    section.Set(key, value);
    sections.push_back(TreeLine(section));
    if (sections.back().find("PALLADO_Crash_Report_LINUX") != std::string::npos)
      sections.pop_back();
  }
  return sections;
}

TEST_P(Report, CutAnywhereGivesAnErrorOrItsFirstSections) {
  const std::string text = ReadFile(Name("_bugreport.txt"));
  const auto whole = ParseReport(text);
  ASSERT_TRUE(whole);
  const std::vector<std::string> all = Sections(*whole);
  for (std::size_t size = 0; size < text.size(); ++size) {
    const auto part = ParseReport(text.substr(0, size));
    if (!part) continue;
    std::vector<std::string> complete = Sections(*part);
    ASSERT_LE(complete.size(), all.size());
    if (!complete.empty()) complete.pop_back();
    EXPECT_TRUE(std::equal(complete.begin(), complete.end(), all.begin())) << "cut at " << size;
  }
  EXPECT_EQ(TreeLine(*ParseReport(text.substr(0, text.rfind('}')))), TreeLine(*whole));
}

INSTANTIATE_TEST_SUITE_P(OfOrigin, Report, testing::Values("windows", "macos", "linux", "tarvo"),
                         [](const auto& name) { return std::string(name.param); });

TEST(Regeneration, WritesWhatResolutionAddedAndWhatOtherTreesHold) {
  DataDictionary frame;
  frame.Set(property::kModuleName, "demo");
  frame.Set(property::kFunctionName, "Crash(int)");
  frame.Set(property::kAddress, std::uint64_t{0x1136});
  frame.Set(property::kSourceFileName, "demo.cpp");
  frame.Set(property::kSourceLine, 12);
  DataArray frames;
  frames.Append(frame);
  frames.Append(DataDictionary());
  DataDictionary thread;
  thread.Set(property::kThreadNumber, std::uint64_t{7});
  thread.Set(property::kCallstack, frames);
  DataArray threads;
  threads.Append(thread);
  DataDictionary module;
  module.Set(property::kModuleName, "demo");
  module.Set(property::kBaseAddress, std::uint64_t{0x1000});
  DataArray modules;
  modules.Append(module);
  module.Set(property::kBaseAddress, std::uint64_t{0x1100});
  modules.Append(module);  // Of modules with one name the first one counts.
  modules.Append(DataDictionary());
  DataDictionary computer;
  computer.Set(property::kOsType, "Microsoft windows");
  computer.Set("signed", -1);
  computer.Set("float", 1.5);
  computer.Set("tree", DataDictionary());
  DataDictionary tree;
  tree.Set(property::kThreads, threads);
  tree.Set(property::kLoadedModules, modules);
  tree.Set(property::kComputerInfo, computer);

  const auto file = Make<MemoryFile>();
  ASSERT_TRUE(WriteCrashLog(tree, *file));
  EXPECT_EQ(file->Text(),
            "PALLADO_Crash_Report_WINDOWS\r\n{\r\nComputerInfo\r\n{\r\n"
            "  OS_Type = Microsoft windows\r\n  signed = 0xffffffffffffffff\r\n  float = 1.5\r\n"
            "  tree = \r\n}\r\nApplicationInfo\r\n{\r\n}\r\nException\r\n{\r\n}\r\n"
            "Opened Scenes\r\n{\r\n}\r\nCall_Stacks\r\n{\r\nCall_Stack_Thread_7\r\n{\r\n"
            "  demo: 0x1136 {Crash(int);demo.cpp;12;0x136}\r\n  : 0x0 {;;;0x0}\r\n"
            "Variables\r\n{\r\nArg|HackForMoltwick =\r\n}\r\nRegisters\r\n{\r\n}\r\n}\r\n}\r\n"
            "Loaded_Modules\r\n{\r\nModuleName = demo\r\n{\r\n  ModuleName = demo\r\n"
            "  BaseAddress = 0x1000\r\n}\r\nModuleName = demo\r\n{\r\n  ModuleName = demo\r\n"
            "  BaseAddress = 0x1100\r\n}\r\nModuleName = unknown\r\n{\r\n}\r\n}\r\n}\r\n");
}

TEST(Regeneration, OnlyTheLowerCaseWordMakesTheWindowsVariant) {
  for (const auto& [system, magic] : {std::pair("a windows b", "PALLADO_Crash_Report_WINDOWS"),
                                      std::pair("Windows 11", "PALLADO_Crash_Report_MACOS"),
                                      std::pair("WINDOWS", "PALLADO_Crash_Report_MACOS")}) {
    DataDictionary computer;
    computer.Set(property::kOsType, system);
    DataDictionary tree;
    tree.Set(property::kComputerInfo, computer);
    const auto file = Make<MemoryFile>();
    ASSERT_TRUE(WriteCrashLog(tree, *file));
    EXPECT_TRUE(file->Text().starts_with(magic)) << system;
  }
}

TEST(Regeneration, EndsWithTheFirstWriteThatFails) {
  const auto whole = Make<MemoryFile>();
  ASSERT_TRUE(WriteCrashLog({}, *whole));
  for (std::size_t capacity = 0; capacity < whole->Text().size(); ++capacity) {
    const auto file = Make<MemoryFile>(capacity);
    const Result<void> written = WriteCrashLog({}, *file);
    ASSERT_FALSE(written);
    EXPECT_EQ(written.GetError().Message(), "No space left");
    EXPECT_TRUE(whole->Text().starts_with(file->Text()) && file->Text().size() <= capacity);
  }
}

TEST(CrashLog, ReadsFiles) {
  HostFramework framework(SteadyClock());
  g_tarvo.framework = &framework;
  const auto report =
      CrashLog::ParseBugReport(Url::FromSystemPath(DataPath("linux_bugreport.txt")));
  ASSERT_TRUE(report);
  EXPECT_EQ(TreeText(*report), ReadFile("linux_bugreport.json"));

  for (const std::string& path : {DataPath("none_bugreport.txt"), DataPath("")}) {
    const auto failed = CrashLog::ParseBugReport(Url::FromSystemPath(path));
    ASSERT_FALSE(failed) << path;
    EXPECT_EQ(failed.GetError().ClassId(), Error::kFile);
    EXPECT_EQ(failed.GetError().Url(), Url::FromSystemPath(path));
  }
  g_tarvo.framework = nullptr;
}

}  // namespace
}  // namespace tarvo::crashhandler
