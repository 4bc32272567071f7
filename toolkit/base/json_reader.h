#pragma once

#include <optional>
#include <string_view>

#include "tarvo/data_dictionary.h"

namespace tarvo::toolkit {

/// What may stand behind an object that is read.
enum class BehindJson : bool { Nothing, Anything };

/// Objects and arrays may be nested so deep.
inline constexpr std::size_t kDeepestJson = 64;

/// The JSON object at the start of `text`, in UTF-8, as a tree: whole numbers of 64 bits are
/// numbers of that kind, others floating-point ones; null is an empty value. Nothing when it is no
/// object, damaged or nested too deep. For small texts: all of it is held. Any thread.
[[nodiscard]] std::optional<DataDictionary> ReadJsonObject(std::string_view text,
                                                           BehindJson behind = BehindJson::Nothing);

}  // namespace tarvo::toolkit
