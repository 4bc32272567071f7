#pragma once

#include <string>
#include <string_view>

namespace tarvo::symbolreader {

/// The readable form of a symbol's name (C++, Rust, D; Microsoft's C++ without access specifiers,
/// calling conventions and return types); the name itself when it is no mangled one.
[[nodiscard]] std::string Demangle(std::string_view name);

}  // namespace tarvo::symbolreader
