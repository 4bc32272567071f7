#pragma once

#include <cstddef>
#include <string_view>

#include "tarvo/result.h"

/// Attachments: what a program wants to find in its crash report beside the capture's own. They
/// work with and without a running Host, and are opt-in: a report without them is as it ever was.
///
///     tarvo::AttachFile("/var/log/viewer.log");       // its last lines at the crash
///     tarvo::AttachText("Settings", settingsAsText);  // as it is now; set again when it changes
///
/// They stand in the report's section Critical_Log, in the order in which they were attached, each
/// under its name, and in the documents under CriticalLog. Line ends part lines; all other control
/// characters are replaced: the tab by a blank, others by "?".
///
/// Reports leave the machine: nothing should be attached that its user would not send.
namespace tarvo {

/// Attachments at one time; more are refused.
inline constexpr std::size_t kMaximumAttachments = 16;
/// Bytes of a name; longer ones are refused.
inline constexpr std::size_t kMaximumAttachmentName = 256;
/// Bytes of a text; longer ones are cut at a character's border.
inline constexpr std::size_t kMaximumAttachedText = std::size_t{16} << 10;
/// Bytes of a file's end that are looked at, and the whole lines of it that are taken at most.
inline constexpr std::size_t kMaximumAttachedFile = std::size_t{64} << 10;
inline constexpr std::size_t kMaximumAttachedLines = 200;
/// Bytes of a line; longer ones are cut, and end in "...".
inline constexpr std::size_t kMaximumAttachedLine = 2048;

/// Attaches the last lines that the file has at the crash. It is opened then, so it may be made, or
/// begun anew, later; only regular files are read. A relative path starts at the working directory
/// of now. The attachment's name is the path. An illegal-argument error for a path that is empty,
/// is too long for a name or holds a control character, or when there are kMaximumAttachments.
[[gnu::visibility("default")]] Result<void> AttachFile(std::string_view path);

/// Attaches a text, or replaces the one of that name. Errors as above; a NUL byte ends the text. An
/// out-of-memory error leaves what was attached. Costs one allocation and a copy; any thread, not
/// in signal handlers.
[[gnu::visibility("default")]] Result<void> AttachText(std::string_view name,
                                                       std::string_view text);

/// Takes out the attachment of that name; for a file its path as it was given. One that is not
/// there is ignored.
[[gnu::visibility("default")]] void RemoveAttachment(std::string_view name);

}  // namespace tarvo
