#pragma once

#include <string_view>

#include "toolkit/triage/model/crash_stack.h"

namespace tarvo::toolkit {

/// Further behind a symbol an address is taken for that of another function, which the symbol table
/// does not have: those of stripped programs hold only what is exported.
inline constexpr std::uint64_t kFurthestFromSymbol = 0x4000;

/// The key of an entry of which neither name nor place is known.
inline constexpr std::string_view kUnknownPlace = "?";

/// Sets the key of each entry:
/// - of the function's name, where there is one (name_key.h);
/// - of an inlined lambda that is called nothing but "operator()": the function that it stands in,
///   which the template arguments of its callers tell, else the first caller that is not glue;
/// - else "module+0x1c0@build", what identifies the place; kUnknownPlace where not even that is
/// known.
void SetKeys(CrashStack& stack);

}  // namespace tarvo::toolkit
