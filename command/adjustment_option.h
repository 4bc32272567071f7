#pragma once

#include <CLI/CLI.hpp>

#include "tarvo/report/normalize.h"

namespace tarvo::command {

/// The options --exact and --adjust. `adjustment` lives until the program ends.
inline void AddAdjustmentOptions(CLI::App& command, report::ReturnAddressAdjustment& adjustment) {
  CLI::Option* exact = command.add_flag_callback(
      "--exact", [&adjustment] { adjustment = report::ReturnAddressAdjustment::None; },
      "Leave every address as it is");
  command
      .add_flag_callback(
          "--adjust", [&adjustment] { adjustment = report::ReturnAddressAdjustment::AllReports; },
          "Adjust return addresses in reports of every\n"
          "origin: all but the innermost frame's")
      ->excludes(exact);
}

}  // namespace tarvo::command
