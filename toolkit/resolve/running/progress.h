#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace tarvo::toolkit {

/// How far a run is.
struct Position {
  std::size_t done = 0;
  std::size_t all = 0;
  std::chrono::nanoseconds time{};  ///< since the start
};

/// "[#####-----] 4312 of 10000 reports, 893 a second, 6 s left", for a terminal of `width` columns.
[[nodiscard]] std::string ProgressBar(const Position& position, std::size_t width);

/// The same without the bar.
[[nodiscard]] std::string ProgressLine(const Position& position);

/// What takes time just now ("libc.so.6: 3.2 of 10.5 MB from debuginfod"): Progress shows it
/// instead of the bar, or where there is none each time that the part before the colon is new. An
/// empty text ends it. Any thread.
void ShowActivity(const std::string& activity);

/// Shows progress on standard error: on a terminal in one line that is written over, elsewhere a
/// line every ten seconds. Used by one thread.
class Progress {
 public:
  /// Shows nothing when `isQuiet`.
  explicit Progress(bool isQuiet);
  /// Takes the terminal's line away.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Show(const Position& position);

 private:
  enum class Kind { None, Bar, Lines };
  Kind kind_;
  std::chrono::nanoseconds nextLine_;
  std::string lastActivity_{};
};

}  // namespace tarvo::toolkit
