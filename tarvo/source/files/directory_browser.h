#pragma once

#include "tarvo/framework.h"

namespace tarvo {

/// Opens a directory for reading its entries, "." and ".." left out. Links are not followed to
/// directories: such an entry carries kSkippedAttribute, like a link that leads nowhere; a link to
/// a file counts as a file.
Result<Ref<BrowseIterator>> BrowseDirectory(const Url& directory);

}  // namespace tarvo
