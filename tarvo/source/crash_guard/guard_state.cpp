#include "crash_guard/guard_state.h"

namespace tarvo {

constinit GuardState g_guard{};
constinit CrashOwner g_crashOwner;

}  // namespace tarvo
