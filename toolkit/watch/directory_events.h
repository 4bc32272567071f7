#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "files/file_descriptor.h"
#include "tarvo/result.h"

namespace tarvo::toolkit {

/// Something that the kernel tells of a directory.
struct DirectoryEvent {
  enum class Kind : std::uint8_t {
    Written,    ///< bytes of the file `path` have changed
    Closed,     ///< who wrote it has closed it
    Moved,      ///< it has come under its name
    Made,       ///< it is there, perhaps empty
    Directory,  ///< the directory `path` is new here
    Lost,       ///< events were lost, or a directory went: only a look at everything tells
  };
  Kind kind = Kind::Lost;
  std::string path{};
};

/// inotify(7). It tells nothing of what other machines do on a file system of the network. Used by
/// one thread.
class DirectoryEvents {
 public:
  /// An illegal-state error when the kernel gives none.
  static Result<DirectoryEvents> Make();

  /// Becomes readable when there is something.
  [[nodiscard]] int Descriptor() const noexcept { return events_.Get(); }

  /// From now on events of `directory`, not of those in it; again is harmless. False where the
  /// kernel refuses: errno tells why.
  [[nodiscard]] bool Add(const std::string& directory);

  /// What has happened since; empty where nothing has.
  [[nodiscard]] std::vector<DirectoryEvent> Take();

 private:
  explicit DirectoryEvents(FileDescriptor events) : events_(std::move(events)) {}

  FileDescriptor events_;
  std::unordered_map<int, std::string> directories_{};  ///< by the watch's number
};

}  // namespace tarvo::toolkit
