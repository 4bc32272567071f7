#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tarvo/framework.h"
#include "toolkit/base/regular_file.h"

namespace tarvo::toolkit {

/// One file with a line of JSON for each report, in the order of the list, whatever the order in
/// which the lines come. They are kept in a file without a name, beside the one that is made, so
/// that memory does not grow with their number and a killed process leaves nothing; or in a file
/// with a name, which outlives a killed process.
class ResultsFile {
 public:
  /// For `count` reports. A file error when nothing can be written in the directory of `file`.
  static Result<ResultsFile> Make(const Url& file, std::size_t count);

  /// The same, with the lines so far, as they come, in FILE.partial-XXXXXX, six letters that make
  /// the name new. Commit takes it away.
  static Result<ResultsFile> MakeKept(const Url& file, std::size_t count);

  /// From now on Add's `report` stands for the line `places[report]`.
  void SetPlaces(std::vector<std::size_t> places) { places_ = std::move(places); }

  /// Takes the line of one report, with its line end. Any thread. An error ends the taking: Commit
  /// gives it.
  void Add(std::size_t report, std::string_view line);

  /// Writes the lines one after the other; `file` appears in one step and replaces an older one.
  [[nodiscard]] Result<void> Commit(FileService& files);

 private:
  struct Extent {
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
  };

  ResultsFile(Url file, File lines, std::string kept, std::size_t count);
  Result<void> Copy(const Extent& extent, OutputFile& to);

  Url file_;
  File lines_;
  std::string kept_;                   ///< its path; empty when it has no name
  std::vector<std::size_t> places_{};  ///< see SetPlaces; empty: each report is its own line
  std::vector<Extent> extents_;
  std::uint64_t size_ = 0;
  Result<void> written_;
  std::unique_ptr<std::mutex> mutex_ = std::make_unique<std::mutex>();
};

/// What stands behind the file's name in that of MakeKept's.
inline constexpr std::string_view kPartialInfix = ".partial-";

}  // namespace tarvo::toolkit
