#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "toolkit/resolve/listing/report_list.h"

/// A list of reports as a file, which many machines read and agree on: a line of JSON for each,
///
///     {"Report":"reports/a_bugreport.txt","Size":48213,"Hash":"9f86d0…","Builds":["2209-city"],
///      "Normalize":true}
///
/// `Report` is the path as it was named, `Hash` the SHA-256 of the file's bytes, `Builds` what its
/// modules are of, the build that it is counted to first. "Normalize" is there for reports that are
/// brought into the form of the others before they are resolved.
namespace tarvo::toolkit {

struct ListedReport {
  Report report;
  std::uint64_t size = 0;  ///< in bytes
  std::string hash;        ///< in lower-case hexadecimal
};

/// `list` with sizes and hashes, read in `threads` threads. A report that cannot be read, and one
/// whose path is not UTF-8 and so cannot stand in a list, joins the failures.
[[nodiscard]] std::vector<ListedReport> IdentifyReports(ReportList& list, std::size_t threads);

/// The list appears in one step. A file error when it cannot be written.
[[nodiscard]] Result<void> WriteReportList(FileService& files,
                                           const std::vector<ListedReport>& reports,
                                           const Url& file);

/// A file error when it cannot be read; an error that names the line that is none of a list, or
/// that names a report again.
[[nodiscard]] Result<std::vector<ListedReport>> ReadReportList(const Url& file);

}  // namespace tarvo::toolkit
