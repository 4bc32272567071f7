#pragma once

#include "linux/linux_crashhandler/register_page.h"
#include "tarvo/crashhandler.h"

namespace tarvo::crashhandler {

/// Appends a thread's 43 registers, each widened to 64 bits, from the page to its record. Stops
/// early when memory is gone. Crashed process.
void DecodeRegisters(ThreadRecord& thread, const RegisterPage& page);

}  // namespace tarvo::crashhandler
