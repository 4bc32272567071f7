#pragma once

#include "text/safe_text.h"

/// The host's rule for texts on a terminal, under the toolkit's name.
namespace tarvo::toolkit {

using tarvo::ReadCharacter;
using tarvo::SafeText;
using tarvo::Shortened;
using tarvo::TextWidth;

}  // namespace tarvo::toolkit
