#pragma once

#include "tarvo/connection.h"

/// The two objects that a module exports, for its own sources: the host is reached through
/// `g_tarvo.framework`, from the registration on until the module is freed. `tarvo_add_module`
/// defines both.
extern tarvo::Connection g_tarvo;
extern tarvo::CpuYieldDelegate g_CpuYieldDelegate;
