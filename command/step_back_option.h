#pragma once

#include <CLI/CLI.hpp>

#include "command/normalize/normalize.h"

namespace tarvo::command {

/// The options --exact and --adjust. `stepBack` lives until the program ends.
inline void AddStepBackOptions(CLI::App& command, StepBack& stepBack) {
  CLI::Option* exact = command.add_flag_callback(
      "--exact", [&stepBack] { stepBack = StepBack::None; }, "Leave every address as it is");
  command
      .add_flag_callback(
          "--adjust", [&stepBack] { stepBack = StepBack::AllReports; },
          "Step return addresses back in reports of\n"
          "every origin: all but the innermost frame")
      ->excludes(exact);
}

}  // namespace tarvo::command
