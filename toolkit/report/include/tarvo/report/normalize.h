#pragma once

#include <string>
#include <string_view>

namespace tarvo::report {

/// In which reports return addresses are adjusted. A return address is that of the instruction
/// behind the call, which may belong to another line or, at a function's end, to another function;
/// one byte before it lies in the call, and that is where it is looked up.
enum class ReturnAddressAdjustment {
  None,
  OwnReports,  ///< of this project's own capture, where it is known which are return addresses
  AllReports,  ///< also in others, all but the innermost frame of each thread
};

/// Whether it is a report of this project's own capture.
[[nodiscard]] bool IsOwnReport(std::string_view report) noexcept;

/// A crash report (tarvo/crash_report.h) as the resolver wants it, as text again, with the same
/// keys and values.
///
/// A report of this project's own capture has no program counters, and what it knows of a frame in
/// one text. Each frame gets its module's name, its function and its program counter. The program
/// itself is listed without a name: it gets the one that its frames have and, where all modules
/// with a build share one, that build. A module listed with a path only gets the path's name.
///
/// In other reports only addresses change, and only for AllReports. Lines that are not understood
/// stay as they are: what is wrong with a report is for its reader to say.
[[nodiscard]] std::string Normalized(
    std::string_view report,
    ReturnAddressAdjustment adjustment = ReturnAddressAdjustment::OwnReports);

}  // namespace tarvo::report
