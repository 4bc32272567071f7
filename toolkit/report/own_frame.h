#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace tarvo::toolkit {

/// A frame as this project's own capture writes it:
///
///     libscene.so(update+0x1c) [0x7f2a…]:<tab>(nil) (SP: 0x7f2a…, PC: (nil))
struct OwnFrame {
  std::string_view module;    ///< "libscene.so"; empty where no module holds the address
  std::string_view function;  ///< "update", as the symbol table spells it; may be empty
  std::string_view offset;    ///< "+0x1c", from the function or, without one, from the module
  std::string_view tail;      ///< from " (SP: 0x…" up to its ","
  std::uint64_t address = 0;
};

/// Takes a frame's line apart; nothing when it is another one.
[[nodiscard]] std::optional<OwnFrame> ParseOwnFrame(std::string_view content) noexcept;

/// "0x7f2a…" as a number; nothing when it is another text.
[[nodiscard]] std::optional<std::uint64_t> ParseAddress(std::string_view text) noexcept;

}  // namespace tarvo::toolkit
