// A module that declares nothing and does nothing.

#include "tarvo/registration.h"

namespace empty_module {

void RegisterNothing(tarvo::Registration& registration);

void RegisterNothing(tarvo::Registration&) {}

}  // namespace empty_module
