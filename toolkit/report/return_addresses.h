#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "toolkit/report/own_frame.h"
#include "toolkit/report/report_lines.h"

/// Return-address adjustment: which addresses of a call stack are return addresses, and so one byte
/// behind what is to be looked up.
namespace tarvo::report {

/// Of one thread of an own report, for each frame whether its address is a return address. No
/// return addresses are: that of the first frame, which the thread's stack handler interrupted, and
/// of its double, for the unwinder sees that frame too; that of the frame which the crash handler
/// interrupted, and of the signal trampoline in front of it, where nothing was called from.
///
/// `fault` is the program counter at the fault, where the report has it. Older captures had the
/// caller in the interrupted frame's place after a call through a wild pointer, at its return
/// address: no frame is at `fault` then.
[[nodiscard]] std::vector<bool> FindReturnAddresses(std::span<const OwnFrame> frames,
                                                    std::optional<std::uint64_t> fault);

/// The address to look up for a return address.
[[nodiscard]] constexpr std::uint64_t AdjustedReturnAddress(std::uint64_t address) noexcept {
  return address == 0 ? 0 : address - 1;
}

/// The text of a report of another origin with the addresses of all frames adjusted but those of
/// each thread's innermost.
[[nodiscard]] std::string WithReturnAddressesAdjusted(std::span<const ReportLine> lines);

}  // namespace tarvo::report
