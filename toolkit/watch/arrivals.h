#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "toolkit/watch/directory_events.h"
#include "toolkit/watch/file_state.h"

namespace tarvo::toolkit {

using SteadyTime = std::chrono::steady_clock::time_point;

/// What a look at all directories has found.
struct Sighting {
  std::vector<std::string> gone{};  ///< reports that were there
  /// Directories that cannot be listed, and why; below them nothing counts as gone.
  std::vector<std::pair<std::string, std::string>> unreadable{};
};

/// Reports that drop into directories and those below, handed out once they are whole:
///
/// - who wrote it has closed it, or it has come by rename, and its end is seen or hidden; or
/// - it has not changed for kBetweenLooks, nobody is known to write it, and its end is seen; or
/// - it has not changed for `patience`, and its end is seen or nobody is known to write it: then it
///   is taken as it is.
///
/// A report is handed out again when its size, time or inode is another. Hidden files and
/// directories, and links to directories, are passed over. Used by one thread.
class Arrivals {
 public:
  static constexpr std::chrono::seconds kBetweenLooks{1};

  /// An error when the kernel gives no events.
  static Result<Arrivals> Make(std::vector<std::string> directories, std::chrono::seconds patience);

  /// Becomes readable when something happens in the directories.
  [[nodiscard]] int Descriptor() const noexcept { return events_.Descriptor(); }
  /// Notes what has happened.
  void TakeEvents(SteadyTime now);
  /// Whether only LookAtAll tells what is there.
  [[nodiscard]] bool HasLost() const noexcept { return hasLost_; }
  /// Why not all directories tell of changes; empty where all do.
  [[nodiscard]] const std::string& Deafness() const noexcept { return deafness_; }

  [[nodiscard]] Sighting LookAtAll(SteadyTime now);

  /// Reports that are whole, at most so many.
  [[nodiscard]] std::vector<std::string> TakeWhole(std::size_t most, SteadyTime now);
  /// Those that may become so.
  [[nodiscard]] std::size_t Waiting() const noexcept { return waiting_.size(); }

 private:
  struct File {
    FileState state{};
    std::optional<FileState> handedOut{};
    SteadyTime unchangedSince{};
    std::uint32_t sighting = 0;  ///< the last one that it was seen in
    bool isWaiting = false;
    bool isWritten = false;  ///< somebody writes it
    bool isClosed = false;   ///< and has closed it
  };
  using Entry = std::pair<const std::string, File>;

  Arrivals(std::vector<std::string> directories, std::chrono::seconds patience,
           DirectoryEvents events)
      : directories_(std::move(directories)), patience_(patience), events_(std::move(events)) {}

  void LookAt(const std::string& directory, SteadyTime now, Sighting& sighting);
  void Hear(const std::string& directory);
  File& Wait(const std::string& path, SteadyTime now);
  [[nodiscard]] bool IsWhole(Entry& entry, const FileState& state, SteadyTime now) const;

  std::vector<std::string> directories_;
  std::chrono::seconds patience_;
  DirectoryEvents events_;
  std::string deafness_{};
  bool hasLost_ = false;
  std::uint32_t sightings_ = 0;
  std::unordered_map<std::string, File> files_{};
  std::vector<std::string> gone_{};
  std::deque<Entry*> waiting_{};  ///< of files_, whose entries stay where they are
};

}  // namespace tarvo::toolkit
