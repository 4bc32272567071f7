#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "toolkit/show/frame_line.h"
#include "toolkit/show/style.h"

namespace tarvo::toolkit {

/// Lays frames out in columns: `number  module  function  location`.
class FrameTable {
 public:
  /// Finds the columns that show most of `lines` in `width` columns (at least 40) of a terminal.
  /// Without `shortens` texts that are longer than their column push the next one on.
  FrameTable(std::span<const FrameLine> lines, std::size_t width, bool shortens);

  /// One line, ending in a line feed. `isMarked` puts an arrow in front, `isQuiet` makes all of it
  /// stand back.
  [[nodiscard]] std::string Line(const FrameLine& line, const Painter& paint, bool isMarked,
                                 bool isQuiet) const;

  /// Where the modules start.
  [[nodiscard]] std::size_t Indent() const { return kMark + number_ + kGap; }

 private:
  static constexpr std::size_t kMark = 2;
  static constexpr std::size_t kGap = 2;

  [[nodiscard]] std::string Cell(std::string_view text, std::size_t width, bool keepsEnd) const;

  bool shortens_;
  std::size_t number_ = 0;
  std::size_t module_ = 0;
  std::size_t function_ = 0;
  std::size_t location_ = 0;
};

}  // namespace tarvo::toolkit
