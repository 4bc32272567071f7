#pragma once

#include "tarvo/framework.h"

namespace tarvo {

/// The system's steady clock, for as long as the process lives.
ClockService& SteadyClock() noexcept;

}  // namespace tarvo
