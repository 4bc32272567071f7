#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tarvo/framework.h"
#include "tarvo/result.h"
#include "tarvo/url.h"

/// The texts of reports as they come: packed, or in an encoding of another system.
namespace tarvo::report {

struct ReportText {
  String text;
  bool isConverted = false;  ///< not the file's bytes: unpacked, or from UTF-16
  String damage{};  ///< of a packed file that gave no more than `text`: what was found; else empty
};

/// The text of the report `file`. Its start is looked at first: a regular file that is neither
/// packed nor starts like a report is not read further, and gives that start.
///
/// Errors: those of the file service; a packed file that gives nothing or is over the limit
/// (tarvo/packed_file.h). Unpacking takes a directory of its own, below the system's for temporary
/// files.
[[nodiscard]] Result<ReportText> ReadReportText(Framework& framework, const Url& file);

/// The same without looking at the start first: all of the file, whatever it is.
[[nodiscard]] Result<ReportText> ReadWholeText(Framework& framework, const Url& file);

/// UTF-16 of either order, with its byte order mark or, as every report starts with an ASCII
/// letter, told by the zero byte beside the first one, as UTF-8. Half of a pair of surrogates, or
/// of a unit, becomes U+FFFD. Nothing when `text` is no UTF-16.
[[nodiscard]] std::optional<std::string> FromUtf16(std::string_view text);

/// Whether `name` is that of a report, perhaps with the suffix of a packed one behind it.
[[nodiscard]] bool IsReportFileName(std::string_view name) noexcept;

/// `report` without the suffix of a packed file.
[[nodiscard]] Url WithoutPacking(const Url& report);

}  // namespace tarvo::report
