#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "tarvo/data_dictionary.h"
#include "tarvo/result.h"
#include "tarvo/url.h"

namespace tarvo::toolkit {

/// What a line of a file of results (`tarvo resolve --results`) says of its report.
struct OutcomeLine {
  std::string report;  ///< its path as it was listed
  std::string hash;    ///< empty where the report could not be read
  bool isFailed = false;
  DataDictionary outcome{};  ///< all of it
  std::string_view line;     ///< the whole of it, with its end; until the next one
};

/// What becomes of a file that ends within a line.
enum class CutEnd {
  Refused,
  PassedOver,  ///< for files that a killed process has left
};

/// Hands each line of `file` to `take`, in order; its first error ends that. A file error when the
/// file cannot be read, is cut off, or has a line without an outcome, with the line's number. Takes
/// as much memory as the longest line, which may have kLongestLine bytes.
inline constexpr std::size_t kLongestLine = std::size_t{1} << 30;
[[nodiscard]] Result<void> ForEachOutcome(
    const Url& file, CutEnd cutEnd, const std::function<Result<void>(const OutcomeLine&)>& take);

/// Hands each line of a text file to `take`, without its end, with its number from 1; the last one
/// may lack its end, which `isWhole` tells. For the rest see above.
struct TextLine {
  std::string_view text;
  std::size_t number = 0;
  bool isWhole = true;
};
[[nodiscard]] Result<void> ForEachLine(const Url& file,
                                       const std::function<Result<void>(const TextLine&)>& take);

/// An error that names file and line.
[[nodiscard]] Error LineError(const Url& file, std::size_t line, std::string_view reason);

}  // namespace tarvo::toolkit
