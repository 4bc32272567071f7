#include "crash_context/held_directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarvo {

bool HeldDirectory::Hold(const char* path) {
  if (const int held = Descriptor(); held >= 0) close(held);
  descriptor_ = open(path, O_PATH | O_DIRECTORY | O_CLOEXEC);
  struct stat status{};
  if (descriptor_ < 0 || fstat(descriptor_, &status) != 0) return false;
  device_ = status.st_dev;
  inode_ = status.st_ino;
  return true;
}

int HeldDirectory::Descriptor() const {
  struct stat status{};
  const bool isOurs = descriptor_ >= 0 && fstat(descriptor_, &status) == 0 &&
                      status.st_dev == device_ && status.st_ino == inode_;
  return isOurs ? descriptor_ : -1;
}

}  // namespace tarvo
