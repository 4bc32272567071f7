#pragma once

#include "tarvo/registration.h"

namespace tarvo::crashhandler {

/// Registers the component SymbolificationImpl: the symbolification interface without a symbol
/// reader behind it. It is there so that the interface is always bound and callers get a clean
/// "Not supported" (illegal state) from both look-ups.
void RegisterSymbolificationImpl(Registration& registration);

}  // namespace tarvo::crashhandler
