#pragma once

#include "tarvo/report/normalize.h"
#include "toolkit/command_line/command_line.h"

namespace tarvo::command {

/// The options --exact and --adjust. `adjustment` lives until the program ends.
inline void AddAdjustmentOptions(command_line::Command& command,
                                 report::ReturnAddressAdjustment& adjustment) {
  const command_line::Option exact = command.AddFlag(
      "--exact", [&adjustment] { adjustment = report::ReturnAddressAdjustment::None; },
      "Leave every address as it is");
  command
      .AddFlag(
          "--adjust", [&adjustment] { adjustment = report::ReturnAddressAdjustment::AllReports; },
          "Adjust return addresses in reports of every\n"
          "origin: all but the innermost frame's")
      .Excludes(exact);
}

}  // namespace tarvo::command
