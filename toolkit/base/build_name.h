#pragma once

#include <string>
#include <string_view>

namespace tarvo::toolkit {

/// Whether archives and folders of a build can be named `build` on Linux, macOS and Windows:
/// printable, without the characters that one of them keeps for itself, none of Windows' devices,
/// without a blank or dot at its end, and short enough to have suffixes behind it.
[[nodiscard]] bool IsBuildName(std::string_view build);

/// A name like `build` that is one.
[[nodiscard]] std::string ProposedBuildName(std::string_view build);

}  // namespace tarvo::toolkit
