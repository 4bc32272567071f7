#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "command/subcommand.h"

namespace tarvo::command {
namespace {

struct Subcommand {
  const char* name;
  const char* description;
  FillSubcommand fill;
};

/// As the help lists them.
constexpr std::array kSubcommands{
    Subcommand{"resolve", "Resolve crash reports to function, file and line", FillResolveCommand},
    Subcommand{"show", "Print a resolved crash log for reading", FillShowCommand},
    Subcommand{"pack", "Add symbols to the archive of a build", FillPackCommand},
    Subcommand{"exec", "Run a program with crash capture", FillExecCommand},
    Subcommand{"check", "Say what archives of symbols hold, and whom they serve", FillCheckCommand},
    Subcommand{"list", "List the archives of symbols in directories", FillListCommand},
    Subcommand{"prune", "Clear away unpacked archives and indices that are not used",
               FillPruneCommand},
    Subcommand{"triage", "Group resolved crash logs by what went wrong", FillTriageCommand},
    Subcommand{"watch", "Resolve and group reports as they drop into a directory",
               FillWatchCommand},
    Subcommand{"merge", "Put together what many tasks have resolved, and check it",
               FillMergeCommand},
    Subcommand{"run", "Run an execution job of a module", FillRunCommand},
    Subcommand{"normalize", "Print a report as it is resolved", FillNormalizeCommand},
    Subcommand{"config", "List every configuration entry", FillConfigCommand},
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
  const std::vector<std::string_view> words(argv, argv + argc);
  for (const auto& [name, description, fill] : kSubcommands) {
    Command command = program.AddSubcommand(name, description);
    // The options of all would take a tenth of the time that a start takes.
    if (std::ranges::find(words, name) != words.end()) fill(command, context);
  }
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
