#pragma once

#include <cstdint>
#include <string>

#include "tarvo/result.h"
#include "tarvo/url.h"

namespace tarvo::toolkit {

/// A report's file as it was before it was resolved: what tells whether it is still the same.
struct ReportIdentity {
  std::uint64_t size = 0;  ///< in bytes
  std::string time;        ///< of the last change: "2026-11-21T13:09:40Z"
  std::string hash;        ///< SHA-256 of its bytes, in lower-case hexadecimal
};

/// Reads the file once. A file error when it cannot be read or is no regular file.
[[nodiscard]] Result<ReportIdentity> IdentifyReport(const Url& report);

}  // namespace tarvo::toolkit
