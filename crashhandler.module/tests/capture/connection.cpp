// The module's exported objects, for tests that run its pieces without a host.

#include "connection.h"

tarvo::Connection g_tarvo;
tarvo::CpuYieldDelegate g_CpuYieldDelegate = nullptr;
