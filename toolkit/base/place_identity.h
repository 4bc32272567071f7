#pragma once

#include <string>

namespace tarvo::toolkit {

/// What changes when another file comes to stand at `path`: "file-", its size in bytes and the time
/// of its last change. Empty where there is no regular file. Costs no reading.
[[nodiscard]] std::string IdentifyPlace(const std::string& path);

}  // namespace tarvo::toolkit
