#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo::toolkit {

/// Larger files have no excerpt.
inline constexpr std::uint64_t kMaximumSourceBytes = std::uint64_t{16} << 20;
/// Once so much was looked through for one document no more excerpts are read.
inline constexpr std::uint64_t kMaximumSourceWork = std::uint64_t{256} << 20;
/// What is behind is cut off.
inline constexpr std::size_t kLongestSourceLine = 1000;
/// Lines in front of the one of interest, and behind it.
inline constexpr std::uint64_t kExcerptContext = 2;

struct SourceLine {
  std::uint64_t number = 0;
  std::string text{};  ///< safe to print, with blanks for tabs
};

/// Reads lines out of source files that are on this machine. Keeps the last file, as frames in a
/// row are often of one.
class SourceReader {
 public:
  /// The lines around `line` (from 1 on) of the regular file `path`; none when there is no such
  /// file or line.
  std::vector<SourceLine> Excerpt(std::string_view path, std::uint64_t line);

  /// When the file of the last excerpt was changed last, in seconds since 1970.
  [[nodiscard]] std::int64_t Time() const noexcept { return time_; }

  /// Whether the file of the last excerpt, `path`, has this checksum (see HasChecksum). Nothing
  /// where it could not be read.
  std::optional<bool> Matches(std::string_view path, std::string_view checksum);

 private:
  void Load(std::string_view path);

  std::string path_;
  std::string content_;
  bool isRead_ = false;  ///< whether `content_` is all that the file holds
  std::int64_t time_ = 0;
  std::uint64_t work_ = 0;  ///< bytes looked through
};

}  // namespace tarvo::toolkit
