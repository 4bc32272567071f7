#pragma once

#include "tarvo/result.h"
#include "toolkit/pack/archive/listing.h"
#include "toolkit/pack/debug_information/find_debug_file.h"
#include "toolkit/pack/inputs/find_bundles.h"
#include "toolkit/pack/pack.h"

namespace tarvo::toolkit {

/// What packs, as functions of a library of its own, which is loaded when `tarvo pack` runs: the
/// archive library brings a dozen others with it, and LLVM's start alone would take a sixth of the
/// time of `tarvo --version`. No other subcommand pays for them. Nothing but this table reaches the
/// functions: who calls them directly is refused by the linker.
struct PackLibrary {
  decltype(&FindBundles) findBundles;
  decltype(&ArchivePath) archivePath;
  decltype(&WriteArchive) writeArchive;
  decltype(&FindDebugFile) findDebugFile;
  decltype(&ReadArchiveManifest) readManifest;

  /// The library, loaded at the first call and kept, as errors hold texts of it; it stands in
  /// "tarvo" beside the host library. An illegal-state error with the loader's reason when it
  /// cannot be loaded.
  static Result<const PackLibrary*> Load();
};

inline constexpr const char* kPackLibraryFile = "tarvo_pack.so";
/// Its one exported object, a PackLibrary.
inline constexpr const char* kPackLibrarySymbol = "tarvoPackLibrary";

}  // namespace tarvo::toolkit
