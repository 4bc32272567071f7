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
  Url place{};  ///< what comes of it is put beside this: itself, or where it would be in a mirror
  std::shared_ptr<const Builds> builds;  ///< that it names, in its order; at most kMaximumBuilds
  bool needsCopy = false;                ///< see ReportResolver::Resolve
};
inline constexpr std::size_t kMaximumBuilds = 64;

struct ListOptions {
  std::size_t threads = 1;  ///< that read
  Url mirror{};             ///< see below
  bool hasPlaces = true;    ///< whether something is put beside the reports' places
};

struct ReportList {
  std::vector<Report> reports;
  std::vector<Failure> failures;
};

/// The reports that `paths` name: files as they are; of directories, and of those below, the files
/// whose names end in "_bugreport.txt" in any case of the letters, or in that and ".gz" or ".xz".
/// Hidden entries, and links to directories, are passed over. Sorted by name, each once. A path
/// that names nothing, or neither a file nor a directory, a directory that cannot be listed and,
/// where it has a place, a second report with the same name for its outcome are failures. A report
/// that cannot be read is listed without builds: resolving it tells why.
///
/// The reports are read. Of their texts only the builds are kept.
///
/// With `mirror` the places of the reports are below that directory, as they are themselves below
/// the directory that all of `paths` have in common: of one directory that is it, of files the one
/// that they are in. So no two reports have one place. Empty: each report is its own place.
[[nodiscard]] ReportList ListReports(Framework& framework, const std::vector<std::string>& paths,
                                     const ListOptions& options);

/// The builds of a report's modules, each once.
[[nodiscard]] Builds BuildsIn(std::string_view report);

}  // namespace tarvo::toolkit
