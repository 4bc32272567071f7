#pragma once

#include <string>
#include <string_view>

#include "tarvo/result.h"

namespace tarvo {

/// The file error `Could not <action> "<path>": <the system's reason>`.
[[nodiscard]] Error FileError(SourceLocation where, std::string_view action, const Url& url,
                              int errorNumber);

/// The path for system calls. A file error when it is empty or holds a NUL byte, which would name
/// another file.
[[nodiscard]] Result<std::string> PathForSystem(SourceLocation where, std::string_view action,
                                                const Url& url);

}  // namespace tarvo
