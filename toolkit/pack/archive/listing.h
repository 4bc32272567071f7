#pragma once

#include <string>

#include "tarvo/result.h"
#include "toolkit/store/manifest.h"

namespace tarvo::toolkit {

/// The bundles of the archive `path` as its manifest tells them; of those that it does not tell,
/// their names alone. Reads nothing else of it. A file error when it is no whole archive.
Result<Manifest> ReadArchiveManifest(const std::string& path);

}  // namespace tarvo::toolkit
