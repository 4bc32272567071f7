#pragma once

#include <span>
#include <string>
#include <vector>

#include "toolkit/document/crash_document.h"

namespace tarvo::toolkit {

/// One line for a frame, or for several equal ones in a row. All texts are safe to print.
struct FrameLine {
  std::size_t number = 0;  ///< of the first frame, from 0 on
  std::size_t count = 1;   ///< of frames that the line stands for; of a caller 0
  std::string module{};
  std::string function{};
  /// "scene.cpp:15"; the address where the source is not known; empty without either.
  std::string location{};
  bool hasSource = false;  ///< whether `location` is one in a source file
  bool isCaller = false;   ///< it is a function that the one in the line before is inlined into
};

/// The lines of `frames`, each one line with those of its inlined callers behind it or, with
/// `fold`, rows of equal ones folded to one. A row ends in front of the frame `crashed`, which so
/// always has a line of its own number. Ends in front of the line that would be more than `most`.
std::vector<FrameLine> MakeFrameLines(std::span<const DocumentFrame> frames, std::size_t crashed,
                                      bool fold, std::size_t most);

}  // namespace tarvo::toolkit
