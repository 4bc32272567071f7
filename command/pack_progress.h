#pragma once

#include <chrono>
#include <string>

namespace tarvo::command {

/// Shows how far a pack is, on standard error: on a terminal in one line that is written over,
/// elsewhere a line every ten seconds. Used by one thread.
class PackProgress {
 public:
  PackProgress();
  /// Takes the terminal's line away.
  ~PackProgress();
  PackProgress(const PackProgress&) = delete;
  PackProgress& operator=(const PackProgress&) = delete;

  /// What is being done: "B12345_dsym.zip: 40 %". Texts that come too soon are not shown.
  void Show(const std::string& text);
  /// Makes room for other lines on standard error.
  void Hide();

 private:
  std::chrono::steady_clock::duration interval_;
  std::chrono::steady_clock::time_point last_;
  bool isTerminal_;
  bool isShown_ = false;
};

}  // namespace tarvo::command
