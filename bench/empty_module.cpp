// A module that declares nothing and does nothing.

#include "tarvo/connection.h"

extern tarvo::Connection g_tarvo;

[[gnu::visibility("default")]] tarvo::Connection g_tarvo{
    .moduleId = "net.tarvo.bench.empty",
    .registerDeclarations = [](tarvo::Registration&) {}};
