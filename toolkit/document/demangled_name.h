#pragma once

#include <string>
#include <string_view>

namespace tarvo::toolkit {

/// `name` as people write it, where it starts as a mangled C++ name; what follows the mangled name
/// (" + 0x1c") stays. Names that could be made to grow beyond measure stay as they are.
[[nodiscard]] std::string Demangled(std::string_view name);

}  // namespace tarvo::toolkit
