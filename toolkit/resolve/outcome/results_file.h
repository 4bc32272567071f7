#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tarvo/framework.h"
#include "toolkit/base/regular_file.h"

namespace tarvo::toolkit {

/// One file with a line of JSON for each report, in the order of the list, whatever the order in
/// which the lines come. A line whose turn has come is written at once, by one thread at a time.
/// One that is early waits in memory, and when many do, in a second file, so that memory does not
/// grow with their number: in one without a name, of which a killed process leaves nothing, or in
/// one with a name, which outlives it.
class ResultsFile {
 public:
  /// For `count` reports. A file error when nothing can be written in the directory of `file`.
  static Result<ResultsFile> Make(FileService& files, const Url& file, std::size_t count);

  /// The same, with all lines so far, as they come, in FILE.partial-XXXXXX, six letters that make
  /// the name new. Commit takes it away.
  static Result<ResultsFile> MakeKept(FileService& files, const Url& file, std::size_t count);

  /// From now on Add's `report` stands for the line `places[report]`.
  void SetPlaces(std::vector<std::size_t> places) { places_ = std::move(places); }

  /// Takes the line of one report, with its line end. Any thread. An error ends the taking: Commit
  /// gives it.
  void Add(std::size_t report, std::string line);

  /// Writes what still waits, past lines that have not come; `file` appears in one step and
  /// replaces an older one.
  [[nodiscard]] Result<void> Commit();

 private:
  struct Extent {
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
  };

  ResultsFile(Url file, Ref<OutputFile> output, std::size_t count)
      : file_(std::move(file)), output_(std::move(output)), extents_(count) {}
  using Lock = std::unique_lock<std::mutex>;

  Result<void> Take(Lock& lock, std::size_t place, std::string line);
  /// Writes `line`, which is the next one, and those behind it that are there. What is written is
  /// the thread's own, so others need not wait for it: they leave their lines.
  Result<void> WriteFrom(Lock& lock, std::string_view line);
  /// Writes the lines whose turn has come, until one is missing.
  Result<void> WriteWaiting(Lock& lock);
  Result<void> Wait(std::size_t place, std::string line);
  Result<void> PutAside(std::size_t place, std::string_view line);
  Result<void> WriteAside(const Extent& extent);

  Url file_;
  Ref<OutputFile> output_;
  std::vector<std::size_t> places_{};             ///< see SetPlaces; empty: each is its own line
  std::size_t next_ = 0;                          ///< the line whose turn it is
  std::map<std::size_t, std::string> waiting_{};  ///< early lines
  std::size_t waitingBytes_ = 0;
  bool isWriting_ = false;       ///< a thread is, or has been when writing failed
  File aside_{};                 ///< early lines that were too many, one after the other
  std::string kept_{};           ///< its path; empty when it has no name
  std::vector<Extent> extents_;  ///< where each line is in it
  std::uint64_t asideSize_ = 0;
  Result<void> written_{};
  std::unique_ptr<std::mutex> mutex_ = std::make_unique<std::mutex>();
};

/// What stands behind the file's name in that of MakeKept's.
inline constexpr std::string_view kPartialInfix = ".partial-";

}  // namespace tarvo::toolkit
