#pragma once

#include <string>
#include <string_view>

namespace tarvo::toolkit {

/// `name` without what tools and compilers put around a function's name: blanks, an address in
/// front, a module in front ("scene.dll!Draw"), the offset behind it ("Draw + 0x1c"), versions
/// ("memcpy@@GLIBC_2.14"), suffixes of clones ("Draw.cold", "Draw [clone .part.0]") and the words
/// of thunks. Mangled names are demangled. Empty when nothing but an address is left.
[[nodiscard]] std::string UndecoratedName(std::string_view name);

}  // namespace tarvo::toolkit
