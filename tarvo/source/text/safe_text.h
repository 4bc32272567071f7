#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tarvo {

/// `text` as it may go to a terminal: whatever could steer one, make more lines of one, or turn
/// the order of what is read around stands as its bytes, each "\xNN". These are the control
/// characters (C0, C1 and DEL), the line and paragraph separators, the marks, embeddings, overrides
/// and isolates of bidirectional text, characters that nobody sees, and bytes that are no UTF-8.
/// The result is valid UTF-8.
[[nodiscard]] std::string SafeText(std::string_view text);

/// The length of the UTF-8 sequence at the front of `text` (not empty), 0 where the bytes are none:
/// cut short, overlong, a surrogate or beyond U+10FFFF. `character` is set to what it stands for.
[[nodiscard]] std::size_t ReadCharacter(std::string_view text, char32_t& character);

/// How many columns a terminal needs for `text` as SafeText gives it. Characters of East Asian
/// width take two, combining ones none.
[[nodiscard]] std::size_t TextWidth(std::string_view text);

/// `text` in at most `width` (at least 1) columns: its start and "…", or with `keepEnd` "…" and its
/// end.
[[nodiscard]] std::string Shortened(std::string_view text, std::size_t width, bool keepEnd = false);

}  // namespace tarvo
