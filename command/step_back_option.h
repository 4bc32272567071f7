#pragma once

#include <CLI/CLI.hpp>

#include "toolkit/report/normalize.h"

namespace tarvo::command {

/// The options --exact and --adjust. `stepBack` lives until the program ends.
inline void AddStepBackOptions(CLI::App& command, toolkit::StepBack& stepBack) {
  CLI::Option* exact = command.add_flag_callback(
      "--exact", [&stepBack] { stepBack = toolkit::StepBack::None; },
      "Leave every address as it is");
  command
      .add_flag_callback(
          "--adjust", [&stepBack] { stepBack = toolkit::StepBack::AllReports; },
          "Step return addresses back in reports of\n"
          "every origin: all but the innermost frame")
      ->excludes(exact);
}

}  // namespace tarvo::command
