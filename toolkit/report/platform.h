#pragma once

#include <string_view>

#include "tarvo/data_dictionary.h"

namespace tarvo::report {

/// The system that a crash log is of: "linux", "macos" or "windows"; empty where it is not known.
[[nodiscard]] std::string_view PlatformOf(const DataDictionary& crashLog);

}  // namespace tarvo::report
