#pragma once

#include <string>

#include "toolkit/pack/archive/archive_writer.h"
#include "toolkit/store/manifest.h"

namespace tarvo::toolkit {

/// The bundles of an archive: as its manifest tells them, and of those that it does not tell, for
/// an older or another program made the archive, as their files do. Each of these is unpacked into
/// the directory `scratch` to be looked at. Entries of the manifest that are not in the archive are
/// left out.
[[nodiscard]] Manifest ManifestOf(const ArchiveReader& archive, const std::string& scratch);

}  // namespace tarvo::toolkit
