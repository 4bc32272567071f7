#pragma once

#include <cstdint>
#include <string>
#include <string_view>

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

/// The same without a hash, and where it can be without opening the file: for whoever reads it.
[[nodiscard]] Result<ReportIdentity> LookAtReport(const Url& report);
/// Adds what was read: its size, and its hash. After LookAtReport.
void AddContent(std::string_view content, ReportIdentity& identity);

}  // namespace tarvo::toolkit
