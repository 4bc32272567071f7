#include "toolkit/base/place_identity.h"

#include <sys/stat.h>

#include "tarvo/format.h"

namespace tarvo::toolkit {

std::string IdentifyPlace(const std::string& path) {
  struct stat status{};
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  return Format("file-@-@.@", status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec)
      .ToStdString();
}

}  // namespace tarvo::toolkit
