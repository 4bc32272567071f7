// Large reports of shapes that make a careless reader slow: each of them read in quadratic time
// takes far longer than the test may, read in linear time a fraction of a second.

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <string_view>

#include "crashlog/reading/report_reader.h"
#include "tarvo/format.h"

namespace tarvo::crashhandler {
namespace {

constexpr std::size_t kPieces = 1'000'000;

struct Shape {
  const char* name;
  std::string_view before;
  std::string_view piece;  ///< comes kPieces times; "@" is its number
  std::string_view after;
  std::size_t values;      ///< how many values the tree then holds
  std::string_view error;  ///< or the error
};

void PrintTo(const Shape& shape, std::ostream* out) { *out << shape.name; }

std::size_t CountValues(const DataValue& value) {
  std::size_t count = 1;
  if (const auto* array = value.As<DataArray>())
    for (const DataValue& element : *array) count += CountValues(element);
  if (const auto* dictionary = value.As<DataDictionary>())
    for (const auto& entry : *dictionary) count += CountValues(entry.value);
  return count;
}

class Hostile : public testing::TestWithParam<Shape> {};

TEST_P(Hostile, ShapeIsReadInLinearTime) {
  const Shape& shape = GetParam();
  std::string report = "TARVO_Crash_Report{";
  report += shape.before;
  for (std::size_t i = 0; i < kPieces; ++i) report += Format(shape.piece, i).View();
  report += shape.after;

  const Result<DataDictionary> tree = ParseReport(report);
  EXPECT_EQ(tree ? "" : tree.GetError().Message().View(), shape.error);
  if (tree) {
    EXPECT_EQ(CountValues(*tree), shape.values);
  }
}

#define THREAD "Call_Stacks{Call_Stack_Thread_1{\n"
/// The tree, the mark of a Linux report, the threads, one thread with its number and call stack.
constexpr std::size_t kOneThread = 1 + 2 + 1 + 3;

constexpr Shape kShapes[] = {
    {"RegistersOnOneLine", THREAD "Registers{\n", "a:b ", "\n}}}", kOneThread + 2, {}},
    {"EqualSignsOnOneLine", THREAD "Registers{\n", "a=b ", "c:d\n}}}", kOneThread + 3, {}},
    {"RegisterNames", THREAD "Registers{\n", "r@:0 ", "\n}}}", kOneThread + 1 + kPieces, {}},
    {"Variables", THREAD "Variables{\n", "v @=\n", "}}}", kOneThread + 1 + kPieces, {}},
    {"FramesOfOneLetter", THREAD, "?\n", "}}", kOneThread + 2 * kPieces, {}},
    {"BeginningsOfStackPointers", THREAD "a:", " (SP: 0", "\n}}", kOneThread + 3, {}},
    {"RegisterBlocks", THREAD, "Registers{a:b\n}", "}}", kOneThread + 2, {}},
    {"Threads", "Call_Stacks{", "Call_Stack_Thread_@{}", "}", 4 + 3 * kPieces, {}},
    {"Sections", "", "Exception{}", "", 4, {}},
    {"OpenQuotes", "Critical_Log{\n", "\"\n", "}", 4 + kPieces, {}},
    {"Blanks", "", " \t\r\n", "}", 3, {}},
    {"WordsWithoutSeparator", "ApplicationInfo{\n", "a ", "", 0,
     "ParseApplicationInfo found an error in line 2"},
    {"ErrorOnTheLastLine", "Exception{\n", "a=\n", "?", 0,
     "ParseException found an error in line 1000002 with ?"},
};
INSTANTIATE_TEST_SUITE_P(Reports, Hostile, testing::ValuesIn(kShapes),
                         [](const auto& shape) { return std::string(shape.param.name); });

TEST(Hostile, TokenIsCutInTheMessage) {
  const Result<DataDictionary> tree = ParseReport(std::string(kPieces, 'x'));
  ASSERT_FALSE(tree);
  EXPECT_EQ(tree.GetError().Message(),
            "Wrong type of report: " + std::string(256, 'x') + "\xE2\x80\xA6");
}

}  // namespace
}  // namespace tarvo::crashhandler
