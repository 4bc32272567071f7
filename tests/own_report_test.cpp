// The reports of every kind of crash, read by the module's reader: nothing in them may be lost. A
// second reader, which shares no code with it, tells what is in them.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "crashlog/reading/report_reader.h"
#include "support/files.h"
#include "support/program.h"
#include "support/report_layout.h"
#include "tarvo/data_dictionary.h"
#include "tarvo/format.h"

namespace {

using tarvo::DataArray;
using tarvo::DataDictionary;
using tarvo::DataValue;

/// A tree as text, with its types, for comparison.
std::string Text(const DataValue& value, const std::string& indentation = "\n") {
  const std::string inner = indentation + "  ";
  std::string text;
  if (const auto* dictionary = value.As<DataDictionary>()) {
    for (const auto& [key, entry] : *dictionary)
      text += inner + key.ToStdString() + ": " + Text(entry, inner);
  } else if (const auto* array = value.As<DataArray>()) {
    for (const DataValue& element : *array) text += inner + "- " + Text(element, inner);
  } else if (const auto* number = value.As<std::uint64_t>()) {
    text = std::to_string(*number);
  } else if (const auto* truth = value.As<bool>()) {
    text = *truth ? "true" : "false";
  } else if (const auto* string = value.As<tarvo::String>()) {
    text = '"' + string->ToStdString() + '"';
  }
  return text;
}

template <typename Pairs>
DataDictionary Texts(const Pairs& pairs, const std::string& prefix = {}) {
  DataDictionary texts;
  for (const auto& [key, value] : pairs)
    if (texts.Find(key) == nullptr) texts.Set(key, tarvo::String(prefix + value));
  return texts;
}

DataDictionary Thread(const ReportThread& report) {
  DataArray frames;
  for (const ReportFrame& frame : report.frames) {
    DataDictionary entry;
    if (!frame.text.starts_with('[')) entry.Set("ModuleName", tarvo::String(frame.text));
    entry.Set("FunctionName", "(nil)");
    frames.Append(entry);
  }
  DataDictionary thread;
  thread.Set("ThreadNumber", report.id);
  thread.Set("Registers", Texts(report.registers, "0x"));
  thread.Set("Properties", Texts(report.variables));
  thread.Set("Callstack", frames);
  return thread;
}

DataDictionary Module(const ReportModule& report, bool isFirst) {
  DataDictionary module;
  module.Set("ModuleName", tarvo::String(report.name));
  module.Set("Executable", tarvo::String(report.path));
  module.Set("BaseAddress", report.base);
  module.Set("BaseSize", report.size);
  if (!report.build.empty()) module.Set("Build", tarvo::String(report.build));
  if (isFirst) module.Set("IsExecutable", true);
  return module;
}

DataDictionary ExpectedTree(const Report& report) {
  DataArray threads;
  for (const ReportThread& thread : report.threads) threads.Append(Thread(thread));
  DataArray modules;
  for (const ReportModule& module : report.modules)
    modules.Append(Module(module, modules.IsEmpty()));
  DataDictionary computer;
  computer.Set("OS_Type", "PALLADO_Crash_Report_LINUX");
  DataDictionary tree;
  tree.Set("Threads", threads);
  tree.Set("LoadedModules", modules);
  tree.Set("ComputerInfo", computer);
  return tree;
}

class OwnReport : public testing::TestWithParam<const char*> {};

TEST_P(OwnReport, IsReadWithoutLoss) {
  const std::string kind = GetParam();
  if (kSanitized && kind == "in-malloc") GTEST_SKIP() << "the sanitizer has its own malloc";
  if (kSanitized && kind == "in-constructor") GTEST_SKIP() << kNoDlopen;
  const TemporaryDirectory scratch;
  const std::string file = scratch / "demo_bugreport.txt";
  const ProgramResult program = RunProgram({BuildDirectory() + "/bin/crashdemo", "--kind", kind,
                                            "--threads", "4", "--g_crashReportUrl=" + file});
  const std::string text = ReadFile(file);
  ASSERT_NE(text, "") << program.Describe();

  tarvo::Result<DataDictionary> tree = tarvo::crashhandler::ParseReport(text);
  ASSERT_TRUE(tree) << tree.GetError().Text().View() << "\n" << text;
  const Report report = ReadReport(text);
  ASSERT_NE(tree->FindAs<DataDictionary>("Exception"), nullptr);
  const DataDictionary exception = *tree->FindAs<DataDictionary>("Exception");
  for (const auto& [key, value] : report.exception) {
    const auto* found = exception.FindAs<tarvo::String>(key);
    ASSERT_NE(found, nullptr) << key;
    // The second reader takes the quotes off.
    EXPECT_TRUE(*found == value || *found == '"' + value + '"') << found->View();
  }
  DataDictionary expected = ExpectedTree(report);
  DataDictionary rest;
  for (const auto& [key, value] : *tree)
    if (key != "Exception") rest.Set(key, value);
  EXPECT_EQ(Text(rest), Text(expected));
}

INSTANTIATE_TEST_SUITE_P(Kinds, OwnReport,
                         testing::Values("null-write", "null-call", "wild-call", "data-call",
                                         "illegal", "bus", "divide", "trap", "sys", "double",
                                         "in-malloc", "busy-malloc", "in-constructor",
                                         "blocked-thread", "hangup", "tracing-refused"),
                         [](const auto& kind) {
                           std::string name = kind.param;
                           std::ranges::replace(name, '-', '_');
                           return name;
                         });

}  // namespace
