#pragma once

#include "archive/archive_limits.h"
#include "tarvo/framework.h"

namespace tarvo {

/// Makes a reader of files that gzip or xz has packed: the class kPackedFileClassId
/// (tarvo/packed_file.h). The directory appears in one step (see MakeDirectoryOnce). The file is
/// untrusted: one that holds more than the limit is an error that says so.
Ref<ReadArchive> CreatePackedFile(const ArchiveLimits& limits);

}  // namespace tarvo
