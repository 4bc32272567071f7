#pragma once

#include <sys/types.h>

namespace tarvo {

/// A directory that is held from the start, so that it can be reached in a crash whatever the
/// process has become: in another directory, shut in by chroot, without a descriptor to spare.
///
/// A program may close descriptors that it does not know (daemons close all), and have a file of
/// its own at ours then. So ours is used only while it is the directory that it was.
class HeldDirectory {
 public:
  constexpr HeldDirectory() = default;

  /// Opens the directory; whether it is there. A second call gives up the first one. Before a
  /// crash.
  bool Hold(const char* path);

  /// The descriptor to give to openat; -1 when it is not ours any more. Crashed process.
  [[nodiscard]] int Descriptor() const;

 private:
  int descriptor_ = -1;
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

}  // namespace tarvo
