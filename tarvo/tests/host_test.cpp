#include "tarvo/host/host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "files/program_build_id.h"
#include "host/module_files.h"
#include "modules/test_service.h"
#include "support/files.h"
#include "tarvo/symbolification.h"

namespace tarvo {
namespace {

std::string ModuleFile(std::string_view name) {
  return TEST_MODULE_DIRECTORY "/" + std::string(name) + ".so";
}

std::vector<std::string> ModuleFiles(const std::vector<std::string>& names) {
  std::vector<std::string> files;
  for (const std::string& name : names) files.push_back(ModuleFile(name));
  return files;
}

/// What standard output gets while `work` runs.
std::string Printed(const std::function<void()>& work) {
  testing::internal::CaptureStdout();
  work();
  return testing::internal::GetCapturedStdout();
}

class HostTest : public testing::Test {
 protected:
  void Start(HostOptions options) {
    printed_ = Printed([&] {
      auto host = Host::Start(std::move(options));
      error_ = host ? "" : host.GetError().Message().ToStdString();
      if (host) host_ = *std::move(host);
    });
  }
  std::string Stop() {
    return Printed([this] { host_.reset(); });
  }
  ~HostTest() override { Stop(); }

  std::unique_ptr<Host> host_;
  std::string printed_;
  std::string error_;
};

constexpr const char* kValues = "switch true level 1 ratio 0.5 text <none>\n";

TEST_F(HostTest, RegistersAllThenInitialisesAndFreesInReverse) {
  for (int round = 0; round < 2; ++round) {  // a process may start one host after the other
    Start({.modules = ModuleFiles({"alpha", "beta"})});
    EXPECT_EQ(error_, "");
    EXPECT_EQ(printed_, std::string("alpha: register\nbeta: register\nalpha: ") + kValues +
                            "alpha: initialise 2\nbeta: " + kValues + "beta: initialise 2\n");
    EXPECT_EQ(Host::Start({}).GetError().Message(), "A host is already running in this process.");
    EXPECT_EQ(Stop(), "beta: free 2\nbeta: free 1\nalpha: free 2\nalpha: free 1\n");
  }
}

TEST_F(HostTest, TheFirstErrorFreesWhatWasInitialised) {
  Start({.modules = ModuleFiles({"alpha", "failing", "beta"})});
  EXPECT_EQ(error_, "failing does not want to");
  EXPECT_EQ(printed_, std::string("alpha: register\nfailing: register\nbeta: register\nalpha: ") +
                          kValues + "alpha: initialise 2\nfailing: " + kValues +
                          "failing: free 1\nalpha: free 2\nalpha: free 1\n");
}

TEST_F(HostTest, NamesWhatCannotBeLoaded) {
  const TemporaryDirectory directory;
  const std::string text = (directory / "text.so").string();
  std::ofstream(text) << "not a library";
  const auto couldNot = [](const std::string& file, const std::string& reason) {
    return "Could not load module \"" + file + "\": " + reason;
  };
  const auto noModule = [&](const std::string& name) {
    return couldNot(ModuleFile(name), "it is no module, it does not export g_tarvo");
  };
  const struct {
    HostOptions options;
    std::string error;
  } kCases[] = {
      {{.modules = {"missing.so"}}, couldNot("missing.so", "No such file or directory")},
      {{.modules = {text}}, couldNot(text, text + ": file too short")},
      {{.modules = {"/"}}, couldNot("/", "/: cannot read file data: Is a directory")},
      {{.modules = ModuleFiles({"no_module"})}, noModule("no_module")},
      {{.modules = ModuleFiles({"function_module"})}, noModule("function_module")},
      {{.modules = ModuleFiles({"dependent"})}, noModule("dependent")},
      {{.modules = ModuleFiles({"alpha", "duplicate"})},
       "The configuration entry g_alphaSwitch is declared by tests.alpha and again by "
       "tests.duplicate."},
      {{.modules = ModuleFiles({"alpha", "alpha"})},
       "The module \"" + ModuleFile("alpha") + "\" is given twice."},
      {{.modules = ModuleFiles({"alpha"}), .configFile = "/none.toml"},
       "Could not read \"/none.toml\": No such file or directory"},
      {{.modules = ModuleFiles({"alpha"}), .bindings = {"net.tarvo.interface.test"}},
       "The binding \"net.tarvo.interface.test\" should be INTERFACE=CLASS."},
      {{.modules = ModuleFiles({"alpha"}), .bindings = {"none=alphaService"}},
       "No module brings a component for the interface \"none\" (binding none=alphaService)."},
      {{.modules = ModuleFiles({"alpha"}), .bindings = {"net.tarvo.interface.test=alphaSymbols"}},
       "No module brings a class \"alphaSymbols\" for the interface net.tarvo.interface.test "
       "(binding net.tarvo.interface.test=alphaSymbols)."},
  };
  for (const auto& [options, error] : kCases) {
    Start(options);
    EXPECT_EQ(error_, error);
    EXPECT_EQ(printed_.find("initialise"), std::string::npos) << error;
  }
}

TEST_F(HostTest, TheDefaultModulesAreThoseOfTheFirstDirectoryThatHasAny) {
  const TemporaryDirectory directory;
  for (const char* folder : {"empty", "full"})
    std::filesystem::create_directory(directory / folder);
  for (const char* file : {"b.so", "crashhandler.so", "a.so", "c.so.1", "readme.txt"})
    std::ofstream(directory / "full" / file) << file;
  const auto path = [&](const char* name) { return (directory / name).string(); };
  EXPECT_EQ(*DefaultModuleFiles({path("none"), path("empty"), path("full")}),
            (std::vector{path("full/crashhandler.so"), path("full/a.so"), path("full/b.so")}));
  EXPECT_EQ(
      DefaultModuleFiles({path("none"), path("empty")}).GetError().Message().View(),
      "No module (*.so) was found; looked in " + path("none") + " and " + path("empty") + ".");

  // A program that is not strict takes those that belong to the host alone, and others by name.
  std::filesystem::create_directory(directory / "own");
  std::ofstream(directory / "own/plug.so") << "of the program";
  const auto known = KnownModuleFiles({path("own"), path("full")});
  ASSERT_TRUE(known);
  EXPECT_EQ(known->files, std::vector{path("full/crashhandler.so")});
  EXPECT_EQ(known->passedOver,
            (std::vector{path("own/plug.so"), path("full/a.so"), path("full/b.so")}));
  EXPECT_EQ(KnownModuleFiles({path("own")}).GetError().Message().View(),
            "No module crashhandler.so was found; looked in " + path("own") + ".");
  EXPECT_EQ(*FindModuleFile("b", {path("own"), path("full")}), path("full/b.so"));
  EXPECT_EQ(*FindModuleFile("b.so", {path("full")}), "b.so");
  EXPECT_EQ(FindModuleFile("c", {path("full")}).GetError().Message().View(),
            "There is no module \"c\"; looked in " + path("full") + ".");
}

std::string ServiceClass(Framework& framework) {
  const auto service = Bind<TestService>(framework);
  return service ? (*service)->ClassName().ToStdString()
                 : service.GetError().Message().ToStdString();
}

TEST_F(HostTest, BindsTheLastComponentUnlessAnotherIsNamed) {
  const struct {
    std::vector<std::string> bindings;
    const char* service;
    const char* symbols;
  } kCases[] = {
      {{}, "betaService", "betaSymbols"},
      {{"net.tarvo.interface.test=alphaService"}, "alphaService", "betaSymbols"},
      {{"net.tarvo.interface.symbolification=betaSymbols",
        "net.tarvo.interface.symbolification=alphaSymbols"},
       "betaService",
       "alphaSymbols"},
  };
  for (const auto& [bindings, service, symbols] : kCases) {
    Start({.modules = ModuleFiles({"alpha", "beta"}), .bindings = bindings});
    Framework& framework = host_->Services();
    EXPECT_EQ(ServiceClass(framework), service);
    EXPECT_EQ(*framework.Bind(TestService::kInterfaceId),
              *framework.Bind(TestService::kInterfaceId));
    const auto first = *Bind<Symbolification>(framework);
    const auto second = *Bind<Symbolification>(framework);
    EXPECT_FALSE(first == second);
    EXPECT_EQ(first->Load({}, {}).GetError().Message(), symbols);
    EXPECT_EQ(framework.Bind("none").GetError().Message(),
              "No component is bound to the interface none.");
    EXPECT_EQ(framework.CreateObject("none").GetError().Message(),
              "The framework has no class \"none\".");
    Stop();
  }
}

TEST_F(HostTest, ListsComponentsWithTheirStatus) {
  Start({.modules = ModuleFiles({"alpha", "beta"})});
  std::string list;
  for (const auto& component : host_->Components())
    list += component.owner + ' ' + component.className + ' ' + component.status +
            (component.isBound ? " bound\n" : "\n");
  EXPECT_EQ(list,
            "tests.alpha alphaService initialized\ntests.alpha alphaSymbols initialized\n"
            "tests.beta betaService initialized bound\ntests.beta betaSymbols initialized bound\n");
}

TEST_F(HostTest, RunsExecutionJobs) {
  Start({.modules = ModuleFiles({"alpha"})});
  EXPECT_EQ(host_->ExecutionJobIds(),
            (std::vector<std::string>{"alpha.values", "alpha.fail", "alpha.throw"}));
  const struct {
    const char* job;
    const char* message;
  } kFailing[] = {
      {"alpha.fail", "No luck"},
      {"alpha.throw", "The job threw an exception: a fit"},
      {"alpha.hidden",
       "There is no execution job \"alpha.hidden\"; known are: alpha.values, alpha.fail, "
       "alpha.throw."},
  };
  for (const auto& [job, message] : kFailing)
    EXPECT_EQ(host_->RunExecutionJob(job).GetError().Message(), message);
  EXPECT_EQ(Printed([this] { EXPECT_TRUE(host_->RunExecutionJob("alpha.values")); }),
            std::string("alpha: ") + kValues);
}

TEST_F(HostTest, AQueryFindsTextsThatSomeSourceHasSet) {
  Start({.arguments = {"--g_UnitTests_Id=build 7", "--g_alphaLevel=2"},
         .modules = ModuleFiles({"alpha"})});
  const ConfigurationService& configuration = host_->Services().Configuration();
  const struct {
    const char* name;
    const char* expected;
  } kCases[] = {
      {"g_UnitTests_Id", "build 7"},
      {"g_alphaText", "The configuration entry g_alphaText is not set."},
      {"g_alphaLevel", "There is no String configuration entry \"g_alphaLevel\"."},
      {"g_none", "There is no String configuration entry \"g_none\"."},
  };
  for (const auto& [name, expected] : kCases) {
    const auto value = configuration.QueryString(name);
    EXPECT_EQ(value ? *value : value.GetError().Message(), expected);
  }
}

TEST_F(HostTest, TheBuildIsNamedByTheStrongestSource) {
  const TemporaryDirectory directory;
  const std::string file = directory / "settings.toml";
  std::ofstream(file) << "g_UnitTests_Id = \"file\"\n";
  const struct {
    HostOptions options;
    const char* byStarter;
    std::string value;
    std::string source;
  } kCases[] = {
      {{.modules = ModuleFiles({"alpha"})},
       nullptr,
       ProgramBuildId(),
       "the program's GNU build id"},
      {{.modules = ModuleFiles({"alpha"}), .build = "own"}, nullptr, "own", "HostOptions::build"},
      {{.modules = ModuleFiles({"alpha"}), .build = "own"},
       "starter",
       "starter",
       "environment variable TARVO_DEFAULT_g_UnitTests_Id"},
      {{.modules = ModuleFiles({"alpha"}), .configFile = file, .build = "own"},
       "starter",
       "file",
       file + ":1"},
  };
  for (const auto& [options, byStarter, value, source] : kCases) {
    if (byStarter != nullptr) setenv("TARVO_DEFAULT_g_UnitTests_Id", byStarter, 1);
    Start(options);
    unsetenv("TARVO_DEFAULT_g_UnitTests_Id");
    ASSERT_EQ(error_, "");
    const auto entries = host_->ConfigurationEntries();
    const auto build = std::ranges::find(entries, "g_UnitTests_Id", &ConfigurationEntry::name);
    EXPECT_EQ(build->value + '|' + build->source, value + '|' + source);
    Stop();
  }
  EXPECT_EQ(ProgramBuildId().size(), 40U);
}

TEST_F(HostTest, WhatTheEnvironmentGetsWrongEndsOnlyAStrictStart) {
  const std::vector<std::string> faults{
      "There is no configuration entry \"g_none\" (environment variable TARVO_g_none).",
      "The configuration entry g_alphaLevel does not accept \"9\" (environment variable "
      "TARVO_g_alphaLevel): expected a whole number from 0 to 2."};
  for (const std::size_t fault : {0U, 1U}) {
    const char* name = fault == 0 ? "TARVO_g_none" : "TARVO_g_alphaLevel";
    setenv(name, "9", 1);
    for (const bool strict : {false, true}) {
      Start({.modules = ModuleFiles({"alpha"}), .strict = strict});
      EXPECT_EQ(error_, strict ? faults[fault] : "");
      const auto warnings = host_ ? host_->Warnings() : std::vector<std::string>();
      EXPECT_EQ(warnings, strict ? std::vector<std::string>() : std::vector{faults[fault]});
      Stop();
    }
    unsetenv(name);
  }
}

// As `tarvo exec` puts one into programs.
TEST_F(HostTest, OneThatYieldsGivesWay) {
  auto yielding = Host::Start({.modules = ModuleFiles({"alpha"}), .yields = true});
  ASSERT_TRUE(yielding);
  Start({.modules = ModuleFiles({"beta"})});
  EXPECT_EQ(error_, "");
  EXPECT_TRUE(printed_.starts_with("alpha: free 2\nalpha: free 1\nbeta: register\n")) << printed_;
}

TEST_F(HostTest, TheProgramsCrashGuardIsTheDefaultOfItsEntries) {
  Start({.arguments = {"--g_crashGuardDeadline=5", "--g_crashGuard=false"},
         .modules = ModuleFiles({"alpha"}),
         .crashGuard = {.enabled = true, .deadline = 7, .reraise = true, .report = "%p.txt"}});
  std::string guard;
  for (const auto& entry : host_->ConfigurationEntries())
    if (entry.name.starts_with("g_crashGuard"))
      guard += entry.name + ' ' + entry.fallback + ' ' + entry.range + ' ' + entry.value + '\n';
  EXPECT_EQ(guard,
            "g_crashGuard true  false\ng_crashGuardDeadline 7 0 to 86400 5\n"
            "g_crashGuardReraise true  true\ng_crashGuardHangup false  false\n"
            "g_crashGuardReport %p.txt  %p.txt\n");
}

TEST_F(HostTest, KnowsItsDirectories) {
  Start({.modules = ModuleFiles({"alpha"})});
  const std::string program = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  EXPECT_EQ(host_->Services().ProgramDirectory().View(), program);
  EXPECT_EQ(host_->Services().ModuleDirectory().View(),
            std::filesystem::canonical(TEST_MODULE_DIRECTORY).string());
}

TEST(TakeConfigurationArguments, LeavesTheProgramsOwnAndAllBehindTheDashes) {
  std::vector<std::string> texts{"--g_program", "run", "--g_a=1", "-x", "--g_b", "--", "--g_c=3"};
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  int count = static_cast<int>(texts.size());
  EXPECT_EQ(TakeConfigurationArguments(count, pointers.data()),
            (std::vector<std::string>{"--g_a=1", "--g_b"}));
  EXPECT_EQ(std::vector<std::string>(pointers.begin(), pointers.begin() + count),
            (std::vector<std::string>{"--g_program", "run", "-x", "--", "--g_c=3"}));
  EXPECT_EQ(pointers[static_cast<std::size_t>(count)], nullptr);
}

}  // namespace
}  // namespace tarvo
