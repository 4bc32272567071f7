#pragma once

#include "tarvo/framework.h"

namespace tarvo {

/// Starts a file that appears under its name when it is committed, by renaming a hidden temporary
/// file of the same directory. It gets the permissions that the process's umask leaves.
///
/// It is not forced to the disk: what is written this way can be made again from its source, and
/// waiting for the disk would cost more than the making. After a power failure the name may
/// therefore show the old content.
Result<Ref<OutputFile>> CreateOutputFile(const Url& file);

}  // namespace tarvo
