#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tarvo/framework.h"

namespace tarvo::toolkit {

/// Something that could not be done with a file, and why.
struct Failure {
  Url file;
  String reason;
};

using Builds = std::vector<std::string>;

/// A crash report that is to be resolved. Small, for there may be any number of them.
struct Report {
  Url file;
  std::shared_ptr<const Builds> builds;  ///< that it names, in its order; at most kMaximumBuilds
  bool needsCopy = false;                ///< see ReportResolver::Resolve
};
inline constexpr std::size_t kMaximumBuilds = 64;

struct ReportList {
  std::vector<Report> reports;
  std::vector<Failure> failures;
};

/// The reports that `paths` name: files as they are; of directories, and of those below, the files
/// whose names end in "_bugreport.txt" in any case of the letters, or in that and ".gz" or ".xz".
/// Hidden entries, and links to directories, are passed over. Sorted by name, each once. A path
/// that names nothing, or neither a file nor a directory, a directory that cannot be listed, a
/// report that cannot be read, and a second report with the same name for its outcome are failures.
///
/// The reports are read in `threads` threads. Of their texts only the builds are kept.
[[nodiscard]] ReportList ListReports(Framework& framework, const std::vector<std::string>& paths,
                                     std::size_t threads);

/// The builds of a report's modules, each once.
[[nodiscard]] Builds BuildsIn(std::string_view report);

}  // namespace tarvo::toolkit
