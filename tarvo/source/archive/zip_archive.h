#pragma once

#include "archive/archive_limits.h"
#include "tarvo/framework.h"

namespace tarvo {

/// Makes a reader of zip archives: the class ReadArchive::kZipClassId. Extracting is all or nothing
/// (see MakeDirectoryOnce) and takes any archive, also a hostile one (see ExtractZip).
Ref<ReadArchive> CreateZipArchive(const ArchiveLimits& limits);

}  // namespace tarvo
