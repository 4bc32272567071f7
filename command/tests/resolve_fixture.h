// What tests of `tarvo resolve` start from.

#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "support/files.h"
#include "support/program.h"
#include "support/zip_builder.h"

namespace tarvo {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

class ResolveCommandTest : public testing::Test {
 protected:
  void Write(const fs::path& path, std::string_view content) {
    fs::create_directories((folder_ / path).parent_path());
    std::ofstream(folder_ / path, std::ios::binary) << content;
  }
  [[nodiscard]] std::string Text(const std::string& path) const {
    return (folder_ / path).string();
  }

  /// In the test's folder, within a time that no run may take.
  ProgramResult Run(Texts line, const Texts& environment = {}) {
    const Texts start = {"/bin/sh", "-c", "cd \"$0\" && exec timeout 60 \"$@\"", Text(".")};
    line.insert(line.begin(), start.begin(), start.end());
    return RunProgram(line, {.environment = environment});
  }
  ProgramResult Tarvo(Texts arguments) {
    arguments.insert(arguments.begin(), TARVO_PROGRAM);
    return Run(arguments);
  }

  TemporaryDirectory folder_;
};

/// A tree of reports, with archives for two of their builds and answers for these.
class ResolveOriginsTest : public ResolveCommandTest {
 protected:
  ResolveOriginsTest() {
    Write("answers",
          "application.app.dsym|0x10000c3d4|Renderer::Draw(int)|C:\\src\\renderer.cpp|31\n"
          "Pallado Pebble.app.dSYM|0x100001136|main|/Users/zoe/main.mm|7\n");
    Write("archives/r15/x3/builds/R15.6-4213_dsym.zip",
          ZipBuilder().Add({"Release/application.app.dsym/x", "symbols"}).Finish());
    Write("archives/r15/y/builds/R15.5-400_dsym.zip",
          ZipBuilder().Add({"Pebble/Pallado Pebble.app.dSYM/x", "symbols"}).Finish());
    for (const std::string& origin : kOrigins)
      Write("reports/" + origin + "_bugreport.txt",
            ReadFile(fs::path(REPORTS) / (origin + "_bugreport.txt")));
  }

  ProgramResult WithRecorder(Texts arguments) {
    const Texts more = {"--module", MODULES "/crashhandler.so", "--module", RECORDER_MODULE,
                        "--g_recorderAnswers=" + Text("answers")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Tarvo(arguments);
  }
  ProgramResult Resolve(Texts arguments) {
    const Texts start = {"resolve",         "--archives", "archives",
                         "--archives-only", "--cache",    "cache"};
    arguments.insert(arguments.begin(), start.begin(), start.end());
    return WithRecorder(arguments);
  }
  /// Contents by name.
  std::map<std::string, std::string> Files(const std::string& directory) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::directory_iterator(folder_ / directory))
      files[entry.path().filename()] = ReadFile(entry.path());
    return files;
  }

  const Texts kOrigins = {"linux", "macos", "tarvo", "windows"};
};

/// Without the lines that the recorder writes.
inline std::string WithoutCalls(const std::string& output) {
  static const std::regex kCall("(load|resolve) .*\n");
  return std::regex_replace(output, kCall, "");
}

/// The documents of `tarvo resolve` begin with this, the job's do not.
inline std::string WithoutOutcome(const std::string& document) {
  static const std::regex kOutcome(R"re(^\{\n  "Outcome": \{\n(.*\n)*?  \},)re");
  return std::regex_replace(document, kOutcome, "{");
}

}  // namespace tarvo
