#pragma once

#include <cstdint>
#include <string>

namespace tarvo::toolkit {

/// A number of bytes for people: "847 B", "8.6 kB", "1.2 GB", in powers of a thousand.
[[nodiscard]] std::string SizeText(std::uint64_t bytes);

}  // namespace tarvo::toolkit
