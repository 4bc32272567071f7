#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>

#include "command/subcommand.h"

namespace tarvo::command {
namespace {

constexpr const char* kRunFooter =
    R"(The job runs once; what it reads and writes is set by configuration entries.

The shared options and the exit statuses are those of `tarvo --help`.

Example:
  tarvo run net.tarvo.execution.crashlogresolve --g_crashlogDirectory=reports \
      --g_symbolArchiveDirectory=archives --g_symbolTemporaryDirectory=cache
)";

struct RunOptions {
  std::string jobId;
  bool listOnly = false;
};

int ListJobs(Host& host) {
  for (const std::string& id : host.ExecutionJobIds()) std::puts(id.c_str());
  return kDone;
}

int RunJob(Host& host, const std::string& jobId) {
  const auto ids = host.ExecutionJobIds();
  const bool isKnown = std::ranges::find(ids, jobId) != ids.end();
  const auto result = host.RunExecutionJob(jobId);
  return result ? kDone : Fail(result.GetError(), isKnown ? kFailed : kWrongUsage);
}

}  // namespace

void FillRunCommand(Command& run, Context& context) {
  run.SetFooter(kRunFooter);
  auto options = std::make_shared<RunOptions>();
  const Option id =
      run.AddOption("JOB_ID", options->jobId, "The job's id; --list shows the known ones");
  run.AddFlag("--list", options->listOnly, "Print the known ids, one a line").Excludes(id);
  const auto check = [options] {
    return options->jobId.empty() && !options->listOnly ? "JOB_ID is required" : "";
  };
  const auto action = [&context, options] {
    context.action = [&context, options] {
      return WithHost(context, [options](Host& host) {
        return options->listOnly ? ListJobs(host) : RunJob(host, options->jobId);
      });
    };
  };
  run.OnNamed(action, check);
}

}  // namespace tarvo::command
