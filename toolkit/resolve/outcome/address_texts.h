#pragma once

#include "tarvo/data_dictionary.h"

namespace tarvo::toolkit {

/// Gives each frame of `crashLog` its address as text too, behind all else ("0x7f2a1000011c"): many
/// readers of JSON, those of JavaScript and jq among them, take numbers for doubles, which lose the
/// last digits of what is larger than 2^53.
void AddAddressTexts(DataDictionary& crashLog);

}  // namespace tarvo::toolkit
