#pragma once

#include <cstddef>
#include <string>

namespace tarvo::bench {

/// A crash report of about `bytes` bytes in the layout of the Linux capture, with what real ones
/// hold: threads with 43 registers, 24 frames and some variables each, and a module of the list for
/// every fourth thread, at least 40. The same text for the same size.
std::string GenerateReport(std::size_t bytes);

}  // namespace tarvo::bench
