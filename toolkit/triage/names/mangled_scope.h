#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tarvo::toolkit {

/// The function that a mangled name of the Itanium C++ ABI means, with the scopes that it stands in
/// and without types ("app::Load::$_0::operator()"), for names that no demangler knows: clang's of
/// generic lambdas among them. Nothing where the text is none, or has more in its names than those.
[[nodiscard]] std::optional<std::string> ItaniumScope(std::string_view name);

/// The same of a mangled name of MSVC ("?Draw@View@scene@@QEAAXH@Z" is "scene::View::Draw").
[[nodiscard]] std::optional<std::string> MsvcScope(std::string_view name);

}  // namespace tarvo::toolkit
