#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

/// Frames as this project's own capture writes them (tarvo/crash_report.h). This is the one place
/// that takes them apart.
namespace tarvo::report {

/// The capture's text for a frame, "libscene.so(update+0x1c) [0x7f2a…]".
struct FrameText {
  std::string_view module;    ///< "libscene.so"; empty where no module holds the address
  std::string_view place;     ///< "update+0x1c": the next two as one
  std::string_view function;  ///< "update", as the symbol table spells it; may be empty
  std::string_view offset;    ///< "+0x1c", from the function or, without one, from the module
  std::uint64_t address = 0;
};

/// Takes a frame's text apart; nothing when it is another one.
[[nodiscard]] std::optional<FrameText> ParseFrameText(std::string_view text) noexcept;

/// A frame's line:
///
///     libscene.so(update+0x1c) [0x7f2a…]:<tab>(nil) (SP: 0x7f2a…, PC: (nil))
struct OwnFrame : FrameText {
  std::string_view stackPointer;  ///< "0x7f2a…"; "(nil)" after a call through a null pointer
};

/// Takes a frame's line apart, without blanks around it; nothing when it is another one.
[[nodiscard]] std::optional<OwnFrame> ParseOwnFrame(std::string_view content) noexcept;

}  // namespace tarvo::report
