#include <CLI/CLI.hpp>
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
    AddResolveCommand, AddShowCommand,      AddPackCommand,   AddExecCommand,
    AddRunCommand,     AddNormalizeCommand, AddConfigCommand,
};

constexpr const char* kProgramFooter =
    R"(The options above may stand before or after the subcommand's name.

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

void AddSharedOptions(CLI::App& program, Context& context) {
  program.set_version_flag("--version", "tarvo " TARVO_VERSION, "Print the version and exit");
  program
      .add_option("--module", context.host.modules,
                  "Load this module; may be repeated. Default:\n"
                  "every module in ../modules beside the\n"
                  "program, or where modules are installed;\n"
                  "crashhandler.so first")
      ->type_name("FILE")
      ->allow_extra_args(false);
  program
      .add_option("--config", context.host.configFile,
                  "Read configuration entries from this\n"
                  "TOML file")
      ->type_name("FILE");
  program
      .add_option("--bind", context.host.bindings,
                  "Use this class for an interface; may be\n"
                  "repeated. Default: the class loaded last")
      ->type_name("INTERFACE=CLASS")
      ->allow_extra_args(false);
}

std::string FailureMessage(const CLI::App*, const CLI::Error& error) {
  return std::string("tarvo: ") + error.what() + "\nRun `tarvo --help` for more information.\n";
}

/// `status`, or failure when not all that was printed could be written.
int WithOutput(int status) {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
  std::fprintf(stderr, "tarvo: Could not write to standard output: %s\n", std::strerror(errno));
  return status == kDone ? kFailed : status;
}

/// What is not known is wrong usage beside --help and --version too, at which the parser ends
/// before it says so.
void Parse(CLI::App& program, int argc, char** argv) try {
  program.parse(argc, argv);
} catch (const CLI::Success&) {
  const std::vector<std::string> unknown = program.remaining(true);
  if (!unknown.empty()) throw CLI::ExtrasError(unknown);
  throw;
}

int Main(int argc, char** argv) {
  Context context;
  context.host.arguments = TakeConfigurationArguments(argc, argv);
  CLI::App program("Captures crashes and resolves crash reports to function, file and line.",
                   "tarvo");
  program.require_subcommand(0, 1)->fallthrough()->footer(kProgramFooter);
  program.failure_message(FailureMessage);
  AddSharedOptions(program, context);
  for (const AddSubcommand add : kSubcommands) add(program, context);
  try {
    Parse(program, argc, argv);
    // Only now, so that a mistyped subcommand is named by the parser.
    if (!context.action) throw CLI::RequiredError("A subcommand");
  } catch (const CLI::ParseError& error) {
    return program.exit(error) == 0 ? kDone : kWrongUsage;
  }
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
