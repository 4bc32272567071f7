#pragma once

#include "tarvo/observable.h"

namespace tarvo {

/// An object of the class "net.tarvo.class.observable".
Ref<Object> CreateObservable();

}  // namespace tarvo
