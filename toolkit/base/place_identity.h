#pragma once

#include <cstddef>
#include <string>

namespace tarvo::toolkit {

/// What changes when another file comes to stand at `path`: "file-", its size in bytes and the time
/// of its last change. Empty where there is no regular file. Costs no reading.
[[nodiscard]] std::string IdentifyPlace(const std::string& path);

/// So many places at most are noted for one report.
inline constexpr std::size_t kMostNotedPlaces = 100;

}  // namespace tarvo::toolkit
