// Runs the real program with the test modules and compares whole outputs.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/program.h"
#include "tarvo/build_tag.h"
#include "tarvo/format.h"

namespace tarvo {
namespace {

using Texts = std::vector<std::string>;

constexpr const char* kHelpHint = "\nRun `tarvo --help` for more information.\n";
const std::string kAlpha = TEST_MODULE_DIRECTORY "/alpha.so";
const std::string kFailing = TEST_MODULE_DIRECTORY "/failing.so";

/// Runs `tarvo` with the module alpha and `arguments`, in a directory that holds "settings.toml".
class CommandTest : public testing::Test {
 protected:
  ProgramResult Run(const Texts& arguments, const Texts& environment = {},
                    const std::string& settings = {}) {
    std::ofstream(directory_ / "settings.toml") << settings;
    // The shell only changes the directory.
    Texts line{"/bin/sh", "-c", "cd \"$0\" && exec \"$@\"", directory_.Path().string(),
               TARVO_PROGRAM};
    line.insert(line.end(), arguments.begin(), arguments.end());
    return RunProgram(line, {.environment = environment});
  }
  ProgramResult RunWithAlpha(Texts arguments, const Texts& environment = {},
                             const std::string& settings = {}) {
    arguments.insert(arguments.begin(), {"--module", kAlpha});
    return Run(arguments, environment, settings);
  }

  TemporaryDirectory directory_;
};

const std::string kQuiet = "TEST_MODULES_QUIET=1";

TEST_F(CommandTest, ConfigListsEveryEntryWithItsSource) {
  const auto end = RunWithAlpha(
      {"config", "--config", "settings.toml", "--g_alphaLevel=2", "--g_UnitTests_Id=2209"},
      {kQuiet, "TARVO_g_alphaLevel=0", "TARVO_g_alphaText=line\n\"end\""},
      "# settings\ng_alphaText = \"weaker\"\n\ng_alphaRatio = 3\n");
  EXPECT_EQ(end.exitStatus, 0);
  EXPECT_EQ(end.errors, "");
  const std::string expected = R"(tests.alpha
  g_alphaSwitch
      a switch
      kind     Bool
      default  true
      value    true               (default)
  g_alphaLevel
      a level
      kind     Int, 0 to 2
      default  1
      value    2                  (command line)
  g_alphaRatio
      a ratio
      kind     Float
      default  0.5
      value    3                  (settings.toml:4)
  g_alphaText
      a text
      kind     String
      default  "none"
      value    "line\x0a\"end\""  (environment variable TARVO_g_alphaText)

host
  g_UnitTests_Id
      identifier of this build, written into crash reports
      kind     String
      default  ""
      value    "2209"             (command line)
)";
  // More entries of the host follow.
  EXPECT_EQ(end.output.substr(0, expected.size()), expected);
}

TEST_F(CommandTest, StrongerSourcesWin) {
  const struct {
    const char* what;
    Texts arguments;
    Texts environment;
    std::string settings;
    const char* expected;
  } kCases[] = {
      {"defaults", {}, {}, "", "switch true level 1 ratio 0.5 text <none>"},
      {"file",
       {},
       {},
       "g_alphaSwitch = false\ng_alphaLevel = 0\ng_alphaRatio = -2.5\n"
       "g_alphaText = \"\"\n",
       "switch false level 0 ratio -2.5 text <>"},
      {"environment over file",
       {},
       {"TARVO_g_alphaLevel=2"},
       "g_alphaLevel = 0\n",
       "switch true level 2 ratio 0.5 text <none>"},
      {"command line over all",
       {"--g_alphaLevel=1"},
       {"TARVO_g_alphaLevel=2"},
       "g_alphaLevel = 0\n",
       "switch true level 1 ratio 0.5 text <none>"},
      {"the last of several",
       {"--g_alphaText=a", "--g_alphaText=b=c"},
       {},
       "",
       "switch true level 1 ratio 0.5 text <b=c>"},
      {"words for truth",
       {"--g_alphaSwitch=No"},
       {},
       "",
       "switch false level 1 ratio 0.5 text <none>"},
      {"variables of others are ignored",
       {},
       {"TARVO_OTHER=1", "g_alphaLevel=7"},
       "",
       "switch true level 1 ratio 0.5 text <none>"},
  };
  for (auto [what, arguments, environment, settings, expected] : kCases) {
    Texts line{"--config", "settings.toml", "run", "alpha.values"};
    line.insert(line.end(), arguments.begin(), arguments.end());
    environment.push_back(kQuiet);
    const auto end = RunWithAlpha(line, environment, settings);
    EXPECT_EQ(end.errors, "") << what;
    EXPECT_EQ(end.output, std::string("alpha: ") + expected + '\n') << what;
    EXPECT_EQ(end.exitStatus, 0) << what;
  }
}

TEST_F(CommandTest, WrongConfigurationStartsNothing) {
  const struct {
    Texts arguments;
    Texts environment;
    std::string settings;
    const char* error;
  } kCases[] = {
      {{"--g_alphaLevel=3"},
       {},
       "",
       "The configuration entry g_alphaLevel does not accept \"3\" (command line): expected a "
       "whole "
       "number from 0 to 2."},
      {{"--g_alphaRatio=fast"},
       {},
       "",
       "The configuration entry g_alphaRatio does not accept \"fast\" (command line): expected a "
       "number."},
      {{"--g_alphaSwich=1"},
       {},
       "",
       "There is no configuration entry \"g_alphaSwich\" (command line)."},
      {{"--g_alphaSwitch"},
       {},
       "",
       "The command line option --g_alphaSwitch sets nothing: expected --g_NAME=VALUE."},
      {{},
       {"TARVO_g_alphaSwitch=maybe"},
       "",
       "The configuration entry g_alphaSwitch does not accept \"maybe\" (environment variable "
       "TARVO_g_alphaSwitch): expected true or false."},
      {{},
       {"TARVO_g_alphaSwich=1"},
       "",
       "There is no configuration entry \"g_alphaSwich\" (environment variable "
       "TARVO_g_alphaSwich)."},
      {{},
       {},
       "\ng_alphaLevel = -1\n",
       "The configuration entry g_alphaLevel does not accept -1 (settings.toml:2): expected a "
       "whole "
       "number from 0 to 2."},
      {{},
       {},
       "g_alphaLevel = \"1\"\n",
       "The configuration entry g_alphaLevel does not accept the text \"1\" (settings.toml:1): "
       "expected a whole number from 0 to 2."},
      {{},
       {},
       "g_alphaText = 5\n",
       "The configuration entry g_alphaText does not accept 5 (settings.toml:1): expected a text."},
      {{},
       {},
       "g_alphaText = [\"a\"]\n",
       "The configuration entry g_alphaText does not accept an array (settings.toml:1): expected a "
       "text."},
      {{},
       {},
       "g_alphaText = 1979-05-27\n",
       "The configuration entry g_alphaText does not accept a date or time (settings.toml:1): "
       "expected a text."},
      {{},
       {},
       "# none\n[section]\ng_alphaLevel = 1\n",
       "There is no configuration entry \"section\" (settings.toml:2)."},
      // A stronger source does not excuse a wrong value in a weaker one.
      {{"--g_alphaLevel=1"},
       {},
       "g_alphaLevel = 9\n",
       "The configuration entry g_alphaLevel does not accept 9 (settings.toml:1): expected a whole "
       "number from 0 to 2."},
  };
  for (const auto& [arguments, environment, settings, error] : kCases) {
    Texts line{"config", "--config", "settings.toml"};
    line.insert(line.end(), arguments.begin(), arguments.end());
    const auto end = RunWithAlpha(line, environment, settings);
    EXPECT_EQ(end.errors, std::string("tarvo: ") + error + '\n');
    EXPECT_EQ(end.output, "alpha: register\n") << error;
    EXPECT_EQ(end.exitStatus, 2) << error;
  }
  // The parser's own words are not ours to compare, but the place is.
  const auto end = RunWithAlpha({"config", "--config", "settings.toml"}, {}, "a = 1\nb =\n");
  EXPECT_TRUE(end.errors.starts_with("tarvo: settings.toml:2: ")) << end.errors;
  EXPECT_EQ(end.exitStatus, 2);
}

TEST_F(CommandTest, ExitStatusesTellUseStartAndFailureApart) {
  const std::string missing =
      "There is no execution job \"none\"; known are: alpha.values, "
      "alpha.fail, alpha.throw.";
  const struct {
    Texts arguments;
    int status;
    std::string output;
    std::string error;
  } kCases[] = {
      {{"--version"}, 0, "tarvo " TARVO_VERSION "\n" TARVO_LICENCE "\n", ""},
      {{"run", "--module=" + kAlpha, "--list"}, 0, "alpha.values\nalpha.fail\nalpha.throw\n", ""},
      {{"--module", kAlpha, "run", "alpha.fail"}, 1, "", "No luck\n"},
      {{"run", "alpha.throw", "--module", kAlpha}, 1, "", "The job threw an exception: a fit\n"},
      {{"--module", kAlpha, "run", "none"}, 2, "", missing + "\n"},
      {{"--module", kAlpha, "--bind", "x=y", "config"},
       2,
       "",
       "No module brings a component for the interface \"x\" (binding x=y).\n"},
      {{"--module", kAlpha, "--module", kFailing, "config"}, 2, "", "failing does not want to\n"},
      {{"--module", "missing.so", "config"},
       2,
       "",
       "Could not load module \"missing.so\": No such file or directory\n"},
      {{}, 2, "", std::string("A subcommand is required") + kHelpHint},
      {{"run"}, 2, "", std::string("JOB_ID is required") + kHelpHint},
      {{"walk"}, 2, "", std::string("The following argument was not expected: walk") + kHelpHint},
      {{"walk", "--help"},
       2,
       "",
       std::string("The following argument was not expected: walk") + kHelpHint},
      {{"config", "walk", "--none", "--version"},
       2,
       "",
       std::string("The following arguments were not expected: --none walk") + kHelpHint},
      {{"config", "--none"},
       2,
       "",
       std::string("The following argument was not expected: --none") + kHelpHint},
  };
  for (const auto& [arguments, status, output, error] : kCases) {
    const auto end = Run(arguments, {kQuiet});
    const std::string expected = error.empty() ? "" : "tarvo: " + error;
    EXPECT_EQ(end.errors, expected);
    EXPECT_EQ(end.exitStatus, status) << expected;
    if (status == 0) {
      EXPECT_EQ(end.output, output);
    }
  }
}

TEST_F(CommandTest, RefusesModulesThatWereBuiltOtherwise) {
  const std::string sdk = Format("SDK @, ", kSdkVersion).ToStdString();
  const std::string abi = R"(Itanium C\+\+ ABI, libstdc\+\+ \(C\+\+11 ABI)";
  const std::string rest = R"(\), layout [0-9a-f]+; (GCC|Clang) .*)";
  const struct {
    std::string module;
    std::string tag;
  } kCases[] = {
      {"debug_mode", sdk + abi + ", debug mode" + rest},
      {"swapped", sdk + abi + rest},
      {"newer", "SDK 99, " + abi + rest},
      {"untagged", "SDK 1, without a build tag"},
      {"unended", "SDK 7, no end"},
  };
  for (const auto& [module, tag] : kCases) {
    const std::string file = TEST_MODULE_DIRECTORY "/" + module + ".so";
    const auto end = Run({"--module", file, "config"});
    EXPECT_EQ(end.exitStatus, 2) << end.Describe();
    EXPECT_EQ(end.output, "") << module;
    const std::string start = "tarvo: Could not load module \"" + file + "\": it was built as \"";
    const std::string close =
        Format("\", this host as \"@\"; they must agree in what stands before the \";\"\n",
               MakeBuildTag().text)
            .ToStdString();
    ASSERT_TRUE(end.errors.starts_with(start) && end.errors.ends_with(close)) << end.errors;
    const std::size_t size = end.errors.size() - start.size() - close.size();
    EXPECT_TRUE(std::regex_match(end.errors.substr(start.size(), size), std::regex(tag)))
        << end.errors;
  }
  EXPECT_EQ(Run({"--module", TEST_MODULE_DIRECTORY "/alike.so", "run", "--list"}, {kQuiet}).output,
            "alike.values\nalike.fail\nalike.throw\n");
}

TEST_F(CommandTest, AFullDiskIsAFailure) {
  const std::string line = TARVO_PROGRAM " --module " + kAlpha + " config >/dev/full";
  const auto end = RunProgram({"/bin/sh", "-c", line}, {.environment = {kQuiet}});
  EXPECT_EQ(end.errors, "tarvo: Could not write to standard output: No space left on device\n");
  EXPECT_EQ(end.exitStatus, 1);
}

TEST_F(CommandTest, ShellsComplete) {
  const struct {
    std::string line;  ///< its last word is completed
    const char* expected;
  } kCases[] = {
      {"tarvo co", "config"},
      {"tarvo --module M run ''", "alpha.fail alpha.throw alpha.values"},
      {"tarvo run --module M alpha.f", "alpha.fail"},
      {"tarvo --module M config --g_alphaS", "--g_alphaSwitch="},
      {"tarvo --module M --g_alphaText = run --g_U", "--g_UnitTests_Id="},
      {"tarvo run --l", "--list"},
      {"tarvo e", "exec"},
      {"tarvo exec --r", "--report"},
      {"tarvo run --b", "--bind"},
      {"tarvo config --config sett", "settings.toml"},
  };
  std::ofstream(directory_ / "settings.toml") << "";
  for (const auto& [line, expected] : kCases) {
    std::string words = line;
    if (const auto at = words.find(" M "); at != std::string::npos)
      words.replace(at + 1, 1, kAlpha);
    const std::string script = "cd '" + directory_.Path().string() +
                               "'; source " TARVO_COMPLETION "; COMP_WORDS=(" + words +
                               "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1));"
                               "_tarvo " TARVO_PROGRAM
                               " \"${COMP_WORDS[-1]}\" \"${COMP_WORDS[-2]}\";"
                               "echo \"${COMPREPLY[*]}\"";
    const auto completed = RunProgram({"/bin/bash", "-c", script}, {.environment = {kQuiet}});
    EXPECT_EQ(completed.output, std::string(expected) + '\n') << line << completed.errors;
    // As the files for zsh and fish ask it; files are the shells' own affair.
    const std::string asked = "set -- " + words + "; bash " TARVO_COMPLETION " $(($# - 1)) " +
                              TARVO_PROGRAM " \"${@:2}\" | tr '\\n' ' '; exit ${PIPESTATUS[0]}";
    const auto answered = RunProgram({"/bin/bash", "-c", asked}, {.environment = {kQuiet}});
    const bool isFile = std::string_view(expected).ends_with(".toml");
    EXPECT_EQ(answered.exitStatus, isFile ? 3 : 0) << answered.Describe();
    EXPECT_EQ(answered.output, isFile ? "" : std::string(expected) + ' ') << line;
  }
}

}  // namespace
}  // namespace tarvo
