#include "host/configuring.h"

#include <unistd.h>

#include "configuration/configuration_source.h"
#include "files/program_build_id.h"

namespace tarvo {
namespace {

Result<void> Declare(HostFramework& framework, const std::vector<std::unique_ptr<Module>>& modules,
                     const HostOptions& options) {
  for (const auto& module : modules) {
    if (auto declared =
            framework.Entries().Declare(module->Id(), module->Registered().configuration);
        !declared)
      return declared;
  }
  return framework.DeclareOwnEntries(options);
}

/// What the build is called without a configuration. Empty texts set nothing.
Result<void> AssignBuild(Configuration& entries, const HostOptions& options) {
  std::vector<Assignment> builds{{.name = "g_UnitTests_Id",
                                  .value = PlainText{ProgramBuildId()},
                                  .source = "the program's GNU build id"},
                                 {.name = "g_UnitTests_Id",
                                  .value = PlainText{options.build},
                                  .source = "HostOptions::build"}};
  std::erase_if(builds, [](const Assignment& build) {
    return std::get<PlainText>(build.value).text.empty();
  });
  return entries.Assign(builds);
}

Result<void> AssignEnvironment(Configuration& entries, const HostOptions& options,
                               StartWarnings& warnings) {
  const auto assignments = ReadEnvironment(environ, kVariableStart);
  if (options.strict) return entries.Assign(assignments);
  for (const Error& error : entries.AssignUsable(assignments))
    warnings.Add(error.Where(), error.Message());
  return {};
}

}  // namespace

Result<void> Configure(HostFramework& framework,
                       const std::vector<std::unique_ptr<Module>>& modules,
                       const HostOptions& options, StartWarnings& warnings) {
  Configuration& entries = framework.Entries();
  if (auto declared = Declare(framework, modules, options); !declared) return declared;
  if (auto assigned = AssignBuild(entries, options); !assigned) return assigned;
  // Meant for all programs that are started: one that lacks an entry has no use for its default.
  (void)entries.AssignUsable(ReadEnvironment(environ, kDefaultVariableStart));
  if (!options.configFile.empty()) {
    const auto assignments = ReadConfigurationFile(options.configFile);
    if (!assignments) return assignments.GetError();
    if (auto assigned = entries.Assign(*assignments); !assigned) return assigned;
  }
  if (auto assigned = AssignEnvironment(entries, options, warnings); !assigned) return assigned;
  const auto assignments = ReadArguments(options.arguments);
  if (!assignments) return assignments.GetError();
  if (auto assigned = entries.Assign(*assignments); !assigned) return assigned;
  entries.Apply();
  return {};
}

}  // namespace tarvo
