// Damaged and cut reports of all origins, read as far as they go: as `tarvo resolve` reads them,
// own reports normalized first.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "crashlog/reading/report_reader.h"
#include "support/files.h"
#include "tarvo/report/normalize.h"
#include "toolkit/report/spelling.h"

namespace {

using tarvo::DataArray;
using tarvo::DataDictionary;
using tarvo::Result;
using tarvo::String;
using tarvo::crashhandler::OnDamage;
using tarvo::crashhandler::ParseReport;
using Texts = std::vector<std::string>;

Result<DataDictionary> Read(const std::string& report) {
  return ParseReport(tarvo::report::Normalized(report), OnDamage::GoOn);
}

/// Every frame as "MODULE|FUNCTION|ADDRESS", in order.
Texts Frames(const DataDictionary& tree) {
  Texts frames;
  const auto* threads = tree.FindAs<DataArray>("Threads");
  if (threads == nullptr) return frames;
  for (const auto& thread : *threads) {
    for (const auto& element : *thread.As<DataDictionary>()->FindAs<DataArray>("Callstack")) {
      const auto& frame = *element.As<DataDictionary>();
      const auto* module = frame.FindAs<String>("ModuleName");
      const auto* function = frame.FindAs<String>("FunctionName");
      const auto* address = frame.FindAs<std::uint64_t>("Address");
      frames.push_back((module == nullptr ? "" : module->ToStdString()) + "|" +
                       (function == nullptr ? "" : function->ToStdString()) + "|" +
                       (address == nullptr ? "" : std::to_string(*address)));
    }
  }
  return frames;
}

/// "LINE: EXPECTED" of each place, and ", cut" behind that where the report ends there.
Texts Damage(const DataDictionary& tree) {
  Texts notes;
  const auto* damage = tree.FindAs<DataArray>("Damage");
  if (damage == nullptr) return notes;
  for (const auto& element : *damage) {
    const auto& note = *element.As<DataDictionary>();
    notes.push_back(std::to_string(*note.FindAs<std::uint64_t>("Line")) + ": " +
                    note.FindAs<String>("Expected")->ToStdString() +
                    (note.Find("Cut") == nullptr ? "" : ", cut"));
  }
  return notes;
}

/// Behind which byte each frame of `report` is whole: that of its address' ")" or, without an
/// address, its line's end.
std::vector<std::size_t> FrameEnds(const std::string& report) {
  std::vector<std::size_t> ends;
  bool isInside = false;
  for (std::size_t at = 0, next = 0; at < report.size(); at = next) {
    next = std::min(report.find('\n', at), report.size() - 1) + 1;
    const std::string line = report.substr(at, next - at);
    const std::size_t first = line.find_first_not_of(" \t\r\n");
    if (first == std::string::npos || line[first] == '{') continue;
    const bool isOther = line[first] == '}' || line.find("Registers") != std::string::npos;
    if (isInside && !isOther) {
      const std::size_t counter = line.find(" PC: ");
      const std::size_t own = line.find("(nil))");
      ends.push_back(own != std::string::npos       ? at + own + 6
                     : counter != std::string::npos ? at + line.find(')', counter) + 1
                                                    : next);
    }
    isInside = !isOther && (isInside || line.find("Call_Stack_Thread_") != std::string::npos);
  }
  return ends;
}

class Salvage : public testing::TestWithParam<const char*> {
 protected:
  static std::string Report() {
    return ReadFile(std::string(TEST_DATA) + "/" + GetParam() + "_bugreport.txt");
  }
};

TEST_P(Salvage, AWholeReportIsNotDamaged) {
  const std::string report = Report();
  const auto tree = Read(report);
  ASSERT_TRUE(tree);
  EXPECT_EQ(Damage(*tree), Texts{});
  EXPECT_EQ(Frames(*tree), Frames(*ParseReport(tarvo::report::Normalized(report))));
}

// Wherever a report is cut, all frames are there that were whole, as they were, and no others; and
// the document says that something is missing.
TEST_P(Salvage, CutAnywhereGivesTheFramesBeforeTheCut) {
  const std::string report = Report();
  const Texts all = Frames(*Read(report));
  const auto ends = FrameEnds(report);
  ASSERT_EQ(ends.size(), all.size());
  const std::size_t end = report.find_last_of('}');
  std::size_t behindFirst = 0, given = 0, any = 0;
  for (std::size_t size = 0; size < end; ++size) {
    const auto whole = static_cast<std::size_t>(
        std::ranges::count_if(ends, [&](std::size_t frame) { return frame <= size; }));
    const auto tree = Read(report.substr(0, size));
    any += static_cast<bool>(tree);
    behindFirst += whole != 0;
    if (!tree) {
      EXPECT_EQ(whole, 0U) << "cut at " << size;
      continue;
    }
    given += whole != 0;
    const Texts frames = Frames(*tree);
    EXPECT_EQ(frames.size(), whole) << "cut at " << size;
    if (frames.size() <= all.size()) {
      for (std::size_t i = 0; i < frames.size(); ++i) {
        // The module's list may be missing that an own report's program is named after.
        EXPECT_EQ(frames[i].substr(frames[i].find('|')), all[i].substr(all[i].find('|')));
      }
    }
    // Between two sections of another origin's report nothing shows.
    const Texts damage = Damage(*tree);
    EXPECT_TRUE(damage.empty() ? std::string(GetParam()) != "tarvo"
                               : damage.back().ends_with(", cut"))
        << "cut at " << size;
  }
  std::printf("%s: %.1f %% of all cuts give something, %.1f %% of those behind the first frame\n",
              GetParam(), 100.0 * static_cast<double>(any) / static_cast<double>(end),
              100.0 * static_cast<double>(given) / static_cast<double>(behindFirst));
  EXPECT_GE(given * 100, behindFirst * 95);
}

// One odd line anywhere, but a "}", which ends a block like another, costs no frames but those that
// it stands between.
TEST_P(Salvage, AnOddLineCostsLittle) {
  const std::string report = Report();
  const Texts all = Frames(*Read(report));
  for (std::size_t at = report.find("{") + 2; at < report.size(); at = report.find('\n', at) + 1) {
    for (const char* odd : {"\t\t(\x01 odd = \n", "\t\t{\n", "\t\t= 5\n", "12 } = {\n"}) {
      std::string damaged = report;
      damaged.insert(at, odd);
      const auto tree = Read(damaged);
      ASSERT_TRUE(tree) << odd << " at " << at;
      EXPECT_GE(Frames(*tree).size() + 2, all.size()) << odd << " at " << at << "\n" << damaged;
    }
    if (report.find('\n', at) == std::string::npos) break;
  }
}

INSTANTIATE_TEST_SUITE_P(OfOrigin, Salvage, testing::Values("windows", "macos", "linux", "tarvo"),
                         [](const auto& name) { return std::string(name.param); });

TEST(SalvageTest, SaysWhatWasLost) {
  const struct {
    const char* report;
    Texts frames;
    Texts damage;
  } kCases[] = {
      {"TARVO_Crash_Report\n{\n Call_Stacks\n {\n  Call_Stack_Thread_1\n  {\n"
       "a:\tf (SP: 0x1, PC: 0x10)\n(odd\nb:\tg (SP: 0x1, PC: 0x20)\n  }\n }\n}\n",
       {"a|f|16", "b|g|32"},
       {"8: ParseCallstack found an error in line 8"}},
      {"TARVO_Crash_Report\n{\n Call_Stacks\n {\n  Call_Stack_Thread_x\n  {\n"
       "a:\tf (SP: 0x1, PC: 0x10)\n  }\n  Call_Stack_Thread_2\n  {\n"
       "b:\tg (SP: 0x1, PC: 0x20)\n  }\n }\n}\n",
       {"b|g|32"},
       {"5: Could not convert \"x\" in line 5 into a number: expected decimal digits of at most 64 "
        "bits"}},
      {"TARVO_Crash_Report\n{\n Call_Stacks\n {\n  Call_Stack_Thread_1\n  {\n"
       "a:\tf (SP: 0x1, PC: 0x10)\nb:\tg (SP: 0x1, PC: 0x2",
       {"a|f|16"},
       {"8: Expected the end of line 8, found end of file, cut"}},
      {"TARVO_Crash_Report\n{\n Exception\n {\n  Address = 0x1\n",
       {},
       {"6: Expected } in line 6, found end of file, cut"}},
      {"TARVO_Crash_Report\n{\n exception\n {\n  Address = 0x1\n }\n Call_Stacks\n {\n"
       "  Call_Stack_Thread_1\n  {\na:\tf (SP: 0x1, PC: 0x10)\n  }\n }\n}\n",
       {"a|f|16"},
       {"3: ParseBugReport found an error in line 3 with exception"}},
      {"TARVO_Crash_Report\n{\n Call_Stacks\n {\n  Call_Stack_Thread_1\n  {\n }\n }\n }\n"
       "  Call_Stack_Thread_2\n  {\na:\tf (SP: 0x1, PC: 0x10)\n  }\n }\n}\n",
       {"a|f|16"},
       {"9: Expected the report's end behind line 9, found more of it"}},
  };
  for (const auto& [report, frames, damage] : kCases) {
    const auto tree = ParseReport(report, OnDamage::GoOn);
    ASSERT_TRUE(tree) << report << tree.GetError().Text().View();
    EXPECT_EQ(Frames(*tree), frames) << report;
    EXPECT_EQ(Damage(*tree), damage) << report;
  }
  // Nothing can be read of these.
  for (const char* report :
       {"", "12", "Other", "TARVO_Crash_Report", "TARVO_Crash_Report {\n nonsense\n"})
    EXPECT_FALSE(ParseReport(report, OnDamage::GoOn)) << report;
}

}  // namespace
