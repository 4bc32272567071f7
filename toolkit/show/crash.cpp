#include "toolkit/show/crash.h"

#include <algorithm>
#include <charconv>

namespace tarvo::toolkit {
namespace {

constexpr std::string_view kHandlerModule = "crashhandler.so";
/// The crash guard's part of the way, where the compiler has left it a frame.
constexpr std::string_view kHostLibrary = "libtarvo.so";

/// A number as reports write it: "0x…" or decimal.
std::optional<std::uint64_t> ToNumber(std::string_view text) {
  const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (isHexadecimal) text.remove_prefix(2);
  std::uint64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data(), end, number, isHexadecimal ? 16 : 10);
  return status == std::errc{} && stop == end ? std::optional(number) : std::nullopt;
}

bool IsOfHandler(const DocumentFrame& frame) { return frame.module == kHandlerModule; }

bool HasHandlerFrames(const DocumentThread& thread) {
  return std::ranges::any_of(thread.frames, IsOfHandler);
}

/// The C library's signal trampoline has a name in few symbol tables only.
bool IsTrampoline(const DocumentFrame& frame) {
  return frame.module.starts_with("libc.so") &&
         (frame.function.starts_with('+') || frame.function.starts_with("__restore_rt"));
}

std::size_t CrashedFrame(const DocumentThread& thread) {
  const auto& frames = thread.frames;
  const auto first = std::ranges::find_if(frames, IsOfHandler);
  if (first == frames.end()) return 0;
  const auto behind = std::find_if(first, frames.end(), [](const DocumentFrame& frame) {
    return !IsOfHandler(frame) && !frame.module.starts_with(kHostLibrary);
  });
  const auto index = static_cast<std::size_t>(behind - frames.begin());
  return index + (behind != frames.end() && IsTrampoline(*behind) ? 1 : 0);
}

template <typename Is>
std::optional<Crash> FindThread(const CrashDocument& document, Is is) {
  const auto thread = std::ranges::find_if(document.threads, is);
  if (thread == document.threads.end()) return std::nullopt;
  return Crash{static_cast<std::size_t>(thread - document.threads.begin()), CrashedFrame(*thread)};
}

}  // namespace

std::optional<Crash> FindCrash(const CrashDocument& document) {
  if (const auto number = ToNumber(FindText(document.exception, "Thread"))) {
    const auto byRegister = FindThread(document, [&](const DocumentThread& thread) {
      return ToNumber(FindText(thread.registers, "fs_base")) == number;
    });
    if (byRegister) return byRegister;
    const auto byNumber =
        FindThread(document, [&](const DocumentThread& thread) { return thread.number == number; });
    if (byNumber) return byNumber;
  }
  return FindThread(document, HasHandlerFrames);
}

}  // namespace tarvo::toolkit
