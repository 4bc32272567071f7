#pragma once

#include <vector>

#include "tarvo/result.h"
#include "toolkit/pack/bundle.h"
#include "toolkit/store/file_description.h"

namespace tarvo::toolkit {

/// The files that hold parts of the debug information of `debugFile`, as entries of a bundle in
/// which that is named like the bundle, where the symbol reader finds them: the supplementary file
/// (dwz) beside it, a package of split debug information under its name and ".dwp", or each part
/// under its relative path, else its name. None where it has all for itself.
///
/// They are looked for as `description` found them, beside the file `path` that the user named and
/// in `places`. A file error that names those that are not there, and where they were looked for:
/// what is incomplete would give wrong answers without a word.
Result<std::vector<BundleEntry>> FindCompanions(const std::string& path,
                                                const std::string& debugFile,
                                                const FileDescription& description,
                                                const DebugPlaces& places);

}  // namespace tarvo::toolkit
