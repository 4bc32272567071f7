#pragma once

#include "tarvo/connection.h"

/// The module's two exported objects; defined in the generated registration.
extern tarvo::Connection g_tarvo;
extern tarvo::CpuYieldDelegate g_CpuYieldDelegate;
