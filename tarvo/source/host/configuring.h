#pragma once

#include <memory>
#include <vector>

#include "host/host_framework.h"
#include "host/module.h"
#include "host/start_warnings.h"

namespace tarvo {

/// Declares the entries of modules and host, and gives them their values from all sources, weakest
/// first: the program's own words, defaults of the one that started it, its file, the environment,
/// the arguments. The first error of a source ends it; of the environment's only where `options`
/// are strict.
Result<void> Configure(HostFramework& framework,
                       const std::vector<std::unique_ptr<Module>>& modules,
                       const HostOptions& options, StartWarnings& warnings);

}  // namespace tarvo
