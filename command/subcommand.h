#pragma once

#include <functional>

#include "tarvo/host/host.h"
#include "toolkit/command_line/command_line.h"

namespace tarvo::toolkit {}

/// The program `tarvo`: one file a subcommand, with its options and its help; `kSubcommands` in
/// main.cpp lists them.
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

/// Gives a subcommand its options and its help. Both live until the program ends.
using FillSubcommand = void (*)(Command& command, Context& context);

void FillCheckCommand(Command& command, Context& context);
void FillConfigCommand(Command& command, Context& context);
void FillExecCommand(Command& command, Context& context);
void FillListCommand(Command& command, Context& context);
void FillMergeCommand(Command& command, Context& context);
void FillNormalizeCommand(Command& command, Context& context);
void FillPackCommand(Command& command, Context& context);
void FillPruneCommand(Command& command, Context& context);
void FillResolveCommand(Command& command, Context& context);
void FillRunCommand(Command& command, Context& context);
void FillShowCommand(Command& command, Context& context);
void FillTriageCommand(Command& command, Context& context);
void FillWatchCommand(Command& command, Context& context);

/// Starts the host with the shared options and calls `work`, whose exit status it returns; where
/// the host cannot start it prints why and returns kWrongUsage.
int WithHost(const Context& context, const std::function<int(Host&)>& work);

/// Prints "tarvo: <the error's text>" to standard error and returns `status`.
int Fail(const Error& error, int status = kFailed);

}  // namespace tarvo::command
