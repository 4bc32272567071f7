#pragma once

#include <string>

namespace tarvo {

/// The GNU build id of this process's program in lower-case hexadecimal; empty when its linker was
/// not asked for one.
[[nodiscard]] std::string ProgramBuildId();

}  // namespace tarvo
