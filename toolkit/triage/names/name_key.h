#pragma once

#include <string>
#include <string_view>

namespace tarvo::toolkit {

/// What is left of longer names is looked at as if they ended there.
inline constexpr std::size_t kLongestName = 16384;

/// The key of a lambda's operator, and of whatever compilers put around it: behind the function
/// that it stands in.
inline constexpr std::string_view kLambda = "{lambda}";

/// What tells one function from another, whoever wrote its name down: "scene::View::Draw".
struct NameKey {
  /// Empty where the name tells nothing: no name, or an address in its place.
  std::string text{};
  /// Only "operator()" was there, as g++ calls an inlined lambda: the function that it stands in
  /// has to be looked for among its callers.
  bool isBareLambda = false;
  /// The function through which a lambda is called that is used as a pointer, not its own code.
  bool isLambdaInvoker = false;
};

/// The key of a function's name as debug information, symbol tables, demanglers and debuggers of
/// g++, clang and MSVC spell it. What differs between two builds, compilers or tools is dropped:
/// offsets, the suffixes of clones, versions, thunks, ABI tags, unnamed namespaces, the standard
/// library's inline namespaces, return types, template arguments, parameters and qualifiers;
/// lambdas are all called kLambda. Linear in the length of the name; any bytes may be in it.
[[nodiscard]] NameKey MakeNameKey(std::string_view name);

/// The key of the first lambda among the template arguments of `name`; empty when there is none:
/// "Apply<scene::Load(int)::<lambda(int)> >" has "scene::Load::{lambda}".
[[nodiscard]] std::string LambdaAmongArguments(std::string_view name);

}  // namespace tarvo::toolkit
