#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "tarvo/data_dictionary.h"
#include "tarvo/result.h"

namespace tarvo {

/// Takes the document's bytes, in order and in pieces of some kilobytes.
using ByteSink = std::function<Result<void>(std::string_view)>;

enum class JsonForm : std::uint8_t {
  Indented,  ///< by two blanks, one member or element a line
  Line,      ///< no blanks and no line ends
};

/// Writes `tree` as one JSON document (RFC 8259), straight from the tree: empty containers as "{}"
/// and "[]", "\n" at the end.
///
/// The document is valid whatever the tree holds. Bytes that are not UTF-8 become U+FFFD, one for
/// each longest beginning of a character (Unicode 15, section 3.9, "U+FFFD Substitution of Maximal
/// Subparts"); control characters are escaped; integers are exact; other numbers are the shortest
/// text that reads back as the same value, and null when they are not finite; a URL is its text.
///
/// The sink's first error ends the writing and is returned. Memory: the nesting and one buffer.
Result<void> WriteJson(const DataDictionary& tree, const ByteSink& sink,
                       JsonForm form = JsonForm::Indented);

/// The same document as a text, which is made in place, in room for `expected` bytes at first.
[[nodiscard]] std::string JsonDocument(const DataDictionary& tree,
                                       JsonForm form = JsonForm::Indented,
                                       std::size_t expected = 0);

}  // namespace tarvo
