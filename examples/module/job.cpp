#include "hello.h"
#include "tarvo/module.h"

namespace hello {
namespace {

constexpr tarvo::SourceFile kSource{"hello/job"};

/// Runs on one of the host's workers.
tarvo::Result<void> Greet() {
  tarvo::Framework& framework = *g_tarvo.framework;
  const auto greeter = tarvo::Bind<Greeter>(framework);
  if (!greeter) return greeter.GetError();
  framework.Output().Console(kSource.Here(), (*greeter)->Greeting());
  return {};
}

}  // namespace

void RegisterJob(tarvo::Registration& registration) {
  registration.executionJobs.push_back(
      {.registryId = tarvo::ExecutionJobRecord::kRegistry,
       .jobId = "org.example.execution.hello",
       .create = []() -> tarvo::Ref<tarvo::Job> { return tarvo::Make<tarvo::ClosureJob>(Greet); }});
}

}  // namespace hello
