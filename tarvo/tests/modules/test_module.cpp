// A small module that tells on the console what the host does with it. The build makes several of
// it: NAME is its name, ENTRIES the name in its configuration entries, and FAILS whether its second
// initialise step fails.

#include <cstdlib>
#include <stdexcept>

#include "tarvo/format.h"
#include "tarvo/module.h"
#include "tarvo/symbolification.h"
#include "test_service.h"

namespace test_module {

void RegisterAll(tarvo::Registration& to);

namespace {

using tarvo::Error;
using tarvo::Job;
using tarvo::Ref;
using tarvo::Result;
using tarvo::String;

constexpr tarvo::SourceFile kSource{"tests/" NAME};

bool g_switch;
std::int64_t g_level;
double g_ratio;
String g_text;

void Say(const String& text) {
  g_tarvo.framework->Output().Console(kSource.Here(), tarvo::Format(NAME ": @", text));
}

void SayOfLife(const String& text) {
  if (std::getenv("TEST_MODULES_QUIET") == nullptr) Say(text);
}

class Service final : public tarvo::Counted<TestService> {
  String ClassName() override { return NAME "Service"; }
};

class Symbols final : public tarvo::Counted<tarvo::Symbolification> {
  Result<void> Load(const tarvo::Url&, const String&) override {
    return Error::IllegalState(kSource.Here(), NAME "Symbols");
  }
  Result<void> Resolve(std::uint64_t, String&, std::int64_t&, String&) override { return {}; }
};

String Values() {
  return tarvo::Format("switch @ level @ ratio @ text <@>", g_switch, g_level, g_ratio, g_text);
}

Result<void> SayValues() {
  Say(Values());
  return {};
}

Result<void> FirstStep() {
  SayOfLife(Values());
  return {};
}

Result<void> SecondStep() {
  if (FAILS) return Error::IllegalState(kSource.Here(), NAME " does not want to");
  SayOfLife("initialise 2");
  return {};
}

template <typename Work>
Ref<Job> MakeJob(Work work) {
  return tarvo::Make<tarvo::ClosureJob>(work);
}

}  // namespace

void RegisterAll(tarvo::Registration& to) {
  SayOfLife("register");
  to.configuration.DeclareBool("g_" ENTRIES "Switch", g_switch, true, 1, "a switch");
  to.configuration.DeclareInt("g_" ENTRIES "Level", g_level, 1, 0, 2, 1, "a level");
  to.configuration.DeclareFloat("g_" ENTRIES "Ratio", g_ratio, 0.5, 1, "a ratio");
  to.configuration.DeclareString("g_" ENTRIES "Text", g_text, "none", 1, "a text");
  to.components.push_back({TestService::kInterfaceId, NAME "Service",
                           []() -> Ref<tarvo::Object> { return tarvo::Make<Service>(); }});
  to.components.push_back({tarvo::Symbolification::kInterfaceId, NAME "Symbols",
                           []() -> Ref<tarvo::Object> { return tarvo::Make<Symbols>(); }});
  to.lifecycle.push_back({FirstStep, [] { SayOfLife("free 1"); }});
  to.lifecycle.push_back({SecondStep, [] { SayOfLife("free 2"); }});
  constexpr auto kRegistry = tarvo::ExecutionJobRecord::kRegistry;
  to.executionJobs.push_back({kRegistry, NAME ".values", [] { return MakeJob(SayValues); }});
  to.executionJobs.push_back({kRegistry, NAME ".fail", [] {
                                return MakeJob([]() -> Result<void> {
                                  return Error::IllegalState(kSource.Here(), "No luck");
                                });
                              }});
  to.executionJobs.push_back(
      {kRegistry, NAME ".throw",
       [] { return MakeJob([]() -> Result<void> { throw std::runtime_error("a fit"); }); }});
  to.executionJobs.push_back(
      {"another registry", NAME ".hidden", [] { return MakeJob(SayValues); }});
}

}  // namespace test_module
