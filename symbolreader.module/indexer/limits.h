#pragma once

#include <cstdint>

namespace tarvo::symbolreader {

/// Lets this process have at most `bytes` of its own data (mapped files do not count), and no core
/// dumps: where it wants more it fails or ends by a signal. The address sanitizer reserves more
/// than any limit, so a build with it has none.
void LimitMemory(std::uint64_t bytes);

}  // namespace tarvo::symbolreader
