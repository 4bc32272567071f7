// A plug-in whose static constructor does not return, so that the loader's lock stays held.

#include <unistd.h>

namespace {
const int g_waits = [] {
  for (;;) pause();
  return 0;
}();
}  // namespace
