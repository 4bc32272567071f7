#pragma once

#include <functional>

#include "tarvo/host/host.h"
#include "toolkit/command_line/command_line.h"

namespace tarvo::toolkit {}

/// The program `tarvo`: one file a subcommand. Each file adds its subcommand, with its options and
/// its help, to the program; `kSubcommands` in main.cpp lists them.
namespace tarvo::command {

using namespace command_line;
using namespace toolkit;

/// Exit statuses.
inline constexpr int kDone = 0;
inline constexpr int kFailed = 1;
/// Also when the host could not be started.
inline constexpr int kWrongUsage = 2;

/// What the subcommands share.
struct Context {
  /// From the options that stand before or after the subcommand's name. Complete when `action`
  /// runs.
  HostOptions host;
  /// Set by the subcommand that was named; returns the exit status.
  std::function<int()> action;
};

/// Adds a subcommand to the program. Both live until the program ends.
using AddSubcommand = void (*)(Program& program, Context& context);

void AddCheckCommand(Program& program, Context& context);
void AddConfigCommand(Program& program, Context& context);
void AddExecCommand(Program& program, Context& context);
void AddListCommand(Program& program, Context& context);
void AddMergeCommand(Program& program, Context& context);
void AddNormalizeCommand(Program& program, Context& context);
void AddPackCommand(Program& program, Context& context);
void AddPruneCommand(Program& program, Context& context);
void AddResolveCommand(Program& program, Context& context);
void AddRunCommand(Program& program, Context& context);
void AddShowCommand(Program& program, Context& context);
void AddTriageCommand(Program& program, Context& context);
void AddWatchCommand(Program& program, Context& context);

/// Starts the host with the shared options and calls `work`, whose exit status it returns; where
/// the host cannot start it prints why and returns kWrongUsage.
int WithHost(const Context& context, const std::function<int(Host&)>& work);

/// Prints "tarvo: <the error's text>" to standard error and returns `status`.
int Fail(const Error& error, int status = kFailed);

}  // namespace tarvo::command
