#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "tarvo/framework.h"
#include "toolkit/resolve/report_list.h"

namespace tarvo::toolkit {

/// Tells which reports need no resolving again.
class Freshness {
 public:
  /// Looks through the whole tree of archives, once. A directory that cannot be listed counts as
  /// empty.
  explicit Freshness(const Url& archives);

  /// Whether what was made of `report` is newer than it and than the archives of its builds.
  [[nodiscard]] bool IsUpToDate(const Report& report) const;

 private:
  using Time = std::filesystem::file_time_type;
  std::map<std::string, Time> archives_;  ///< by build, the newest of each
};

}  // namespace tarvo::toolkit
