#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace tarvo::report {

/// The module whose frames are the crash handler's.
inline constexpr std::string_view kCaptureModule = "crashhandler.so";

/// What tells whose a frame is.
struct FrameName {
  std::string_view module;    ///< its file's name
  std::string_view function;  ///< may have its offset behind it
  std::uint64_t address = 0;
};

/// Where a thread's call stack shows the crash handler at work. Innermost first there are:
///
///     libc.so.6: syscall             what the handler has called, if anything
///     crashhandler.so: …             the handler, ...
///     libtarvo.so.1: …               ... called by the crash guard, where there is one
///     libc.so.6: …                   the signal trampoline: the kernel's way back from a handler
///     libscene.so.1: update          what was interrupted
struct HandlerFrames {
  std::size_t end = 0;         ///< index of the frame behind the handler's last one
  bool hasTrampoline = false;  ///< whether that one is the trampoline

  /// The index of the frame that was interrupted; may be that behind the last frame.
  [[nodiscard]] std::size_t Interrupted() const noexcept { return end + (hasTrampoline ? 1 : 0); }
};

/// Finds the handler in a thread's frames, innermost first; nothing when it is not there. Without a
/// trampoline behind it the thread may be one of the handler's module's own.
///
/// `fault`, the program counter at the fault where the report has it, is the interrupted frame's,
/// if there is such a frame: handlers of the program, which called the crash handler, may stand
/// between that and the trampoline.
[[nodiscard]] std::optional<HandlerFrames> FindHandlerFrames(
    std::span<const FrameName> frames, std::optional<std::uint64_t> fault = std::nullopt);

}  // namespace tarvo::report
