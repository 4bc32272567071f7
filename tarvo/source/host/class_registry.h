#pragma once

#include <string_view>

#include "host/host_entries.h"
#include "tarvo/object.h"
#include "tarvo/result.h"

namespace tarvo {

/// Makes an object of one of the framework's classes (the table in class_registry.cpp). An
/// illegal-argument error that names the class when there is none of that id.
Result<Ref<Object>> CreateFrameworkObject(std::string_view classId, const HostEntries& entries);

}  // namespace tarvo
