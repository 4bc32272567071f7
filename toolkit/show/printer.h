#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>

#include "toolkit/document/crash_document.h"

namespace tarvo::toolkit {

struct ShowOptions {
  std::size_t width = 100;      ///< columns that lines are fitted to
  bool cuts = true;             ///< shortens what is wider; else it stands further to the right
  bool isColoured = false;      ///< with escape sequences for colours
  bool showsAll = false;        ///< every frame, text and section, nothing folded or shortened
  bool showsSource = true;      ///< excerpts of source files that are on this machine, ...
  bool takesAnySource = false;  ///< ... also of those that may not be what was compiled
  std::optional<std::uint64_t> thread{};  ///< only the threads of this number
  bool showsCrashOnly = false;  ///< no other thread than the one that crashed, where it is known

  [[nodiscard]] bool Cuts() const noexcept { return cuts && !showsAll; }
};

/// Without `showsAll` threads other than the one that crashed get that many lines of frames.
inline constexpr std::size_t kLinesOfOtherThreads = 8;

/// Prints the document for reading. Whatever its texts hold, only printable characters and the
/// sequences of `isColoured` get out. Ends early when `out` fails.
void PrintCrashDocument(const CrashDocument& document, const ShowOptions& options, std::FILE* out);

}  // namespace tarvo::toolkit
