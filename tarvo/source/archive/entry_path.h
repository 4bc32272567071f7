#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tarvo/result.h"

/// Names in archives come from anywhere. These functions decide which of them may become a path
/// below the directory that an archive is extracted into. Their errors say what was found.
namespace tarvo {

/// A deeper nesting has no use and makes the tree costly to remove.
inline constexpr std::size_t kMaximumEntryDepth = 100;

/// A name of an archive as messages show it: cut where it is longer than 256 bytes, and with "?"
/// for control characters, which could make more lines of one or steer a terminal.
[[nodiscard]] std::string NameForMessage(std::string_view name);

/// The names that an entry's path leads through, the last one its own; none for the directory
/// itself
/// ("./"). Empty names and "." are left out. An error when the path is absolute, holds "..", or
/// nests deeper than kMaximumEntryDepth.
Result<std::vector<std::string>> EntryNames(std::string_view path);

/// Checks that a symbolic link in a directory `depth` names deep leads to nothing outside. Its
/// target must be relative, with ".." at its front only and at most `depth` of them: the link's own
/// directory consists of real directories, so those steps up are exact, and every name after them
/// may at most be another such link.
Result<void> CheckLinkTarget(std::string_view target, std::size_t depth);

}  // namespace tarvo
