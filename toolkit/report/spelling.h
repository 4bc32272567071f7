#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tarvo/data_dictionary.h"

/// Names and values of own reports that no line of a report could carry as they are, spelled so
/// that it can; crash_report::kSpelled has the form.
namespace tarvo::report {

/// `text` spelled.
[[nodiscard]] std::string Spelled(std::string_view text);

/// What `text` spells; nothing when it is no spelling that Spelled makes.
[[nodiscard]] std::optional<std::string> Unspelled(std::string_view text);

// Each gives `text` as it is where a reader takes it from its place in a line without change, else
// spelled.

/// In front of a frame's ":". A reader takes a name there that starts like an identifier, holds no
/// ":", and whose first word opens no block.
[[nodiscard]] std::string FrameModuleText(std::string_view text);
/// Between a frame's ":" and its stack pointer.
[[nodiscard]] std::string FrameFunctionText(std::string_view text);
/// In front of "=": one identifier.
[[nodiscard]] std::string KeyText(std::string_view text);
/// Behind "=": what neither starts with a blank nor holds a line's end.
[[nodiscard]] std::string ValueText(std::string_view text);

/// Puts what is spelled in `crashLog` back: names of modules, functions of frames, variables of
/// threads, values of modules.
void RestoreSpelled(DataDictionary& crashLog);

}  // namespace tarvo::report
