#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "command/subcommand.h"

namespace tarvo::command {
namespace {

constexpr std::array kSubcommands{
    AddResolveCommand, AddShowCommand,      AddPackCommand,   AddExecCommand,  AddCheckCommand,
    AddListCommand,    AddPruneCommand,     AddTriageCommand, AddWatchCommand, AddMergeCommand,
    AddRunCommand,     AddNormalizeCommand, AddConfigCommand,
};

constexpr const char* kProgramFooter =
    R"(These options may stand before or after the subcommand's name.

Configuration entries take their values from, strongest first:
  --g_NAME=VALUE          the command line
  TARVO_g_NAME=VALUE      the environment
  g_NAME = VALUE          a line of the TOML file given with --config
  the declared default    (`tarvo config` shows it)
An unknown entry, a value of the wrong kind and one out of the entry's range are
errors; nothing is started then.

Exit status:
  0  done
  1  failed; the reason is on standard error
  2  wrong usage, or a module or the configuration is not as it should be

Examples:
  tarvo exec -- python3 script.py
  tarvo pack --build R15.6-4213 --archives archives bin/scene lib/libscene.so.1
  tarvo resolve reports --archives archives --cache cache
  tarvo show reports/crash_bugreport.resolved.json
  tarvo config --module build/release/modules/crashhandler.so
)";

void AddSharedOptions(Program& program, Context& context) {
  program.SetVersion("tarvo " TARVO_VERSION "\n" TARVO_LICENCE);
  program
      .AddOption("--module", context.host.modules,
                 "Load this module; may be repeated. Default:\n"
                 "every module in ../modules beside the\n"
                 "program, or where modules are installed;\n"
                 "crashhandler.so first")
      .Named("FILE")
      .OneValueEachTime();
  program
      .AddOption("--config", context.host.configFile,
                 "Read configuration entries from this\n"
                 "TOML file")
      .Named("FILE");
  program
      .AddOption("--bind", context.host.bindings,
                 "Use this class for an interface; may be\n"
                 "repeated. Default: the class loaded last")
      .Named("INTERFACE=CLASS")
      .OneValueEachTime();
}

/// `status`, or failure when not all that was printed could be written.
int WithOutput(int status) {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
  std::fprintf(stderr, "tarvo: Could not write to standard output: %s\n", std::strerror(errno));
  return status == kDone ? kFailed : status;
}

int Main(int argc, char** argv) {
  Context context;
  context.host.arguments = TakeConfigurationArguments(argc, argv);
  context.host.strict = true;
  Program program("tarvo",
                  "Captures crashes and resolves crash reports to function, file and line.");
  program.SetFooter(kProgramFooter);
  AddSharedOptions(program, context);
  for (const AddSubcommand add : kSubcommands) add(program, context);
  if (const auto status = program.Parse(argc, argv)) return *status;
  return WithOutput(context.action());
}

}  // namespace
}  // namespace tarvo::command

int main(int argc, char** argv) try {
  return tarvo::command::Main(argc, argv);
} catch (const std::exception& exception) {
  std::fprintf(stderr, "tarvo: %s\n", exception.what());
  return tarvo::command::kFailed;
}
