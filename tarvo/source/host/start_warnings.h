#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tarvo/framework.h"

namespace tarvo {

/// What a start found fault with and went on: kept for the program, and printed unless that is not
/// wanted.
class StartWarnings {
 public:
  StartWarnings(OutputService& output, bool prints) : output_(output), prints_(prints) {}

  void Add(SourceLocation where, std::string_view text) {
    all_.emplace_back(text);
    if (prints_) output_.Diagnostic(where, text);
  }
  [[nodiscard]] const std::vector<std::string>& All() const noexcept { return all_; }

 private:
  OutputService& output_;
  const bool prints_;
  std::vector<std::string> all_;
};

}  // namespace tarvo
