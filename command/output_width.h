#pragma once

#include <cstddef>
#include <optional>

namespace tarvo::command {

/// What lines are fitted to: the columns that COLUMNS says, else those of the terminal, at least
/// 40; nothing where neither is there: what goes into a mail or a file is wanted whole.
[[nodiscard]] std::optional<std::size_t> OutputWidth();

}  // namespace tarvo::command
