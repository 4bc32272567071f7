#include "legacycrashlog/attachments.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

#include "crash_context/text_buffer.h"
#include "legacycrashlog/text_composer.h"
#include "linux/linux_crashhandler/base/fault_guard.h"
#include "linux/linux_crashhandler/capture.h"
#include "tarvo/crash_report.h"
#include "tarvo/host/attachments.h"

namespace tarvo::crashhandler {
namespace {

/// What is shown of an attachment. It is copied here first, and guarded: the program's memory may
/// be in ruins.
struct Content {
  char name[kMaximumAttachmentName + 1];
  char bytes[kMaximumAttachedFile];
  std::size_t size;
  bool isCut;         ///< something stood in front of it
  const char* fault;  ///< why there is nothing; null when there is
};
static_assert(kMaximumAttachedText <= sizeof(Content::bytes));

/// Large, and touched by a crash with attachments alone.
Content g_content;

void AppendLine(TextComposer& text, std::string_view line) {
  constexpr std::string_view kCut = "...";
  text.Append("\t\t");
  text.Append(crash_report::kAttachedLine);
  if (line.ends_with('\r')) line.remove_suffix(1);
  std::string_view shown = line.substr(0, kMaximumAttachedLine);
  while (shown.size() < line.size() && !shown.empty() && (line[shown.size()] & 0xC0) == 0x80)
    shown.remove_suffix(1);
  bool followsC2 = false;
  for (const char c : shown) {
    const auto byte = static_cast<unsigned char>(c);
    // C1 in UTF-8 is behind 0xc2; so are printable characters.
    const bool isC1 = followsC2 && byte >= 0x80 && byte < 0xa0;
    if (followsC2) text.Append(isC1 ? "?" : "\xc2");
    followsC2 = byte == 0xc2;
    if (followsC2 || isC1) continue;
    text.Append(byte == '\t' ? " " : byte < 0x20 || byte == 0x7f ? "?" : std::string_view(&c, 1));
  }
  if (followsC2) text.Append("?");
  if (shown.size() < line.size()) text.Append(kCut);
  text.Append("\n");
}

void ReadFile(const char* path) {
  // A pipe or a device in its place must not hold up the end.
  const int file = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  struct stat status{};
  if (file < 0 || fstat(file, &status) != 0) {
    g_content.fault = ErrorText(errno);
  } else if (!S_ISREG(status.st_mode)) {
    g_content.fault = "it is no regular file";
  } else {
    constexpr auto kRoom = static_cast<off_t>(sizeof(g_content.bytes));
    off_t at = std::max<off_t>(status.st_size - kRoom, 0);
    g_content.isCut = at > 0;
    for (ssize_t count = 1; count > 0 && g_content.size < sizeof(g_content.bytes); at += count) {
      count = pread(file, g_content.bytes + g_content.size,
                    sizeof(g_content.bytes) - g_content.size, at);
      if (count > 0) g_content.size += static_cast<std::size_t>(count);
    }
  }
  if (file >= 0) close(file);
}

/// The last lines of a text; all but the very last one are whole.
std::string_view LastLines(std::string_view text, bool isCut) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  std::size_t start = text.size();
  for (std::size_t lines = 0; lines < kMaximumAttachedLines && start != 0; ++lines) {
    const std::size_t end = text.rfind('\n', start - 1);
    const bool isFirst = end == std::string_view::npos;
    // The front of the first line is missing: it is taken only when there is no other.
    if (isFirst && isCut && lines != 0) break;
    start = isFirst ? 0 : end;
  }
  const bool isBehindEnd = start < text.size() && text[start] == '\n';
  return text.substr(isBehindEnd ? start + 1 : start);
}

/// Copies what is attached; false when that faulted.
bool Load(const Attachment& attachment) {
  g_content.size = 0;
  g_content.isCut = false;
  g_content.fault = nullptr;
  return RunGuarded(g_faultGuard, [&] {
    strncpy(g_content.name, attachment.name, sizeof(g_content.name) - 1);
    if (attachment.file != nullptr) {
      ReadFile(attachment.file);
    } else {
      g_content.size = std::min(attachment.size, kMaximumAttachedText);
      memcpy(g_content.bytes, attachment.text, g_content.size);
    }
  });
}

void AppendHeading(TextComposer& text, const char* state) {
  TextBuffer<sizeof(g_content.name) + 32> heading;
  heading.Append('[');
  heading.Append(g_content.name);
  heading.Append(state);
  heading.Append(']');
  AppendLine(text, heading.Text());
}

void WriteAttachment(std::FILE* out, const Attachment& attachment) {
  const bool isLoaded = Load(attachment);
  TextComposer text(out);
  if (!isLoaded || g_content.fault != nullptr) {
    AppendHeading(text, "");
    TextBuffer<200> fault;
    fault.Append("(cannot be read: ");
    fault.Append(isLoaded ? g_content.fault : "its memory is in ruins");
    fault.Append(')');
    return AppendLine(text, fault.Text());
  }
  const std::string_view whole(g_content.bytes, g_content.size);
  const bool isFile = attachment.file != nullptr;
  std::string_view lines = isFile ? LastLines(whole, g_content.isCut) : whole;
  const bool isCut = g_content.isCut || lines.data() != whole.data();
  AppendHeading(text, isCut ? ", its last lines" : "");
  while (!lines.empty()) {
    const std::size_t end = lines.find('\n');
    AppendLine(text, lines.substr(0, end));
    lines.remove_prefix(end == std::string_view::npos ? lines.size() : end + 1);
  }
}

}  // namespace

void WriteAttachments(std::FILE* out) {
  if (g_crashServices == nullptr) return;
  bool isOpen = false;
  for (std::size_t i = 0; i < g_crashServices->attachmentPlaces; ++i) {
    const Attachment* attachment = g_crashServices->attachment(i);
    if (attachment == nullptr) continue;
    if (!isOpen) {
      fputs_unlocked("\tCritical_Log\n\t{\n", out);
      isOpen = true;
    }
    WriteAttachment(out, *attachment);
    fflush_unlocked(out);
  }
  if (isOpen) fputs_unlocked("\t}\n", out);
}

}  // namespace tarvo::crashhandler
