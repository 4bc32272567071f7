#include "toolkit/report/handler_frames.h"

#include <algorithm>

namespace tarvo::report {
namespace {

constexpr std::string_view kHostLibrary = "libtarvo.so";
constexpr std::string_view kCLibrary = "libc.so";

bool IsOfCapture(const FrameName& frame) { return frame.module == kCaptureModule; }

/// The crash guard's part of the way is there where the compiler has left it a frame.
bool IsOfHandler(const FrameName& frame) {
  return IsOfCapture(frame) || frame.module.starts_with(kHostLibrary);
}

/// In the C library, where only few symbol tables have a name for it.
bool IsTrampoline(const FrameName& frame) {
  const bool isUnnamed = frame.function.empty() || frame.function.starts_with('+');
  return frame.module.starts_with(kCLibrary) &&
         (isUnnamed || frame.function.starts_with("__restore_rt"));
}

}  // namespace

std::optional<HandlerFrames> FindHandlerFrames(std::span<const FrameName> frames,
                                               std::optional<std::uint64_t> fault) {
  const auto first = std::ranges::find_if(frames, IsOfCapture);
  if (first == frames.end()) return std::nullopt;
  if (fault) {
    const auto interrupted =
        std::ranges::find(first + 1, frames.end(), *fault, &FrameName::address);
    if (interrupted != frames.end())
      return HandlerFrames{static_cast<std::size_t>(interrupted - frames.begin()) - 1, true};
  }
  const auto behind = std::find_if_not(first, frames.end(), IsOfHandler);
  return HandlerFrames{static_cast<std::size_t>(behind - frames.begin()),
                       behind != frames.end() && IsTrampoline(*behind)};
}

}  // namespace tarvo::report
