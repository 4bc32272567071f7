#pragma once

#include <string>
#include <string_view>

namespace tarvo {

/// Appends `text` to `out` as a JSON string with its quotes: always valid UTF-8 and always escaped
/// as JSON asks (see json_writer.h for the rules).
void AppendJsonString(std::string& out, std::string_view text);

}  // namespace tarvo
