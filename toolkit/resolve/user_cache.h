#pragma once

#include "tarvo/result.h"
#include "tarvo/url.h"

namespace tarvo::toolkit {

/// Directories of this program in the user's cache directory ($XDG_CACHE_HOME, else ~/.cache).
/// Nobody else can enter them.
struct UserCache {
  Url builds{};      ///< unpacked archives
  Url noArchives{};  ///< an empty directory: the resolver wants one
};

/// Makes those that are wanted. A file error when one cannot be made, or is somebody else's; an
/// illegal-state error when the user has no cache directory.
Result<UserCache> MakeUserCache(bool wantsNoArchives, bool wantsBuilds);

}  // namespace tarvo::toolkit
