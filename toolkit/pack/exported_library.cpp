#include "toolkit/pack/pack_library.h"

extern "C" [[gnu::visibility("default")]] const tarvo::toolkit::PackLibrary tarvoPackLibrary = {
    tarvo::toolkit::FindBundles, tarvo::toolkit::ArchivePath, tarvo::toolkit::WriteArchive,
    tarvo::toolkit::FindDebugFile, tarvo::toolkit::ReadArchiveManifest};
