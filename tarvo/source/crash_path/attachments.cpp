// Each attachment is an immutable block that its place points to. A change exchanges the block and
// frees the old one, but not once a capture has begun: the crashing thread says that it begins
// before it looks at any place, so it finds either the new block, or an old one that nobody frees
// any more.

#include "tarvo/host/attachments.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <system_error>
#include <utility>

#include "crash_path/crash_services.h"
#include "crash_path/process_end.h"
#include "crash_path/process_lock.h"
#include "tarvo/format.h"

namespace tarvo {
namespace {

constexpr SourceFile kAttachments{"tarvo/source/attachments"};

struct Stored {
  Stored(std::string_view givenName, std::string_view givenText, std::string path)
      : name(givenName), text(givenText), file(std::move(path)) {
    view = {.name = name.c_str(),
            .file = file.empty() ? nullptr : file.c_str(),
            .text = text.c_str(),
            .size = text.size()};
  }

  std::string name;
  std::string text;
  std::string file;
  Attachment view;
};

using Place = std::atomic<Stored*>;
constinit std::array<Place, kMaximumAttachments> g_places{};
constinit ProcessLock g_lock;

bool IsAttachmentName(std::string_view name) noexcept {
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; };
  return !name.empty() && name.size() <= kMaximumAttachmentName &&
         std::ranges::none_of(name, isControl);
}

/// The text's first bytes, up to a NUL byte and not ending inside a UTF-8 character.
std::string_view BoundedAttachment(std::string_view text) noexcept {
  text = text.substr(0, text.find('\0'));
  if (text.size() <= kMaximumAttachedText) return text;
  std::size_t size = kMaximumAttachedText;
  while (size > kMaximumAttachedText - 4 && (text[size] & 0xC0) == 0x80) --size;
  return text.substr(0, size);
}

/// The place of that name, else a free one; the end when there is none.
Place* PlaceFor(std::string_view name, bool orFree) {
  const auto isNamed = [&](const Place& place) {
    const Stored* stored = place.load();
    return stored != nullptr && stored->name == name;
  };
  const auto isFree = [](const Place& place) { return place.load() == nullptr; };
  auto* found = std::ranges::find_if(g_places, isNamed);
  if (found == g_places.end() && orFree) found = std::ranges::find_if(g_places, isFree);
  return found;
}

void Exchange(Place& place, Stored* stored) {
  const Stored* old = place.exchange(stored);
  if (!HasCaptureBegun()) delete old;
}

Result<void> Attach(std::string_view name, std::string_view text, std::string file) {
  if (!IsAttachmentName(name)) {
    return Error::IllegalArgument(kAttachments.Here(),
                                  Format("\"@\" is no name of an attachment: it must not be empty "
                                         "or hold control characters, and have at most @ bytes.",
                                         name, kMaximumAttachmentName));
  }
  auto stored = std::make_unique<Stored>(name, BoundedAttachment(text), std::move(file));
  const std::scoped_lock lock(g_lock);
  Place* place = PlaceFor(name, true);
  if (place == g_places.end()) {
    return Error::IllegalArgument(
        kAttachments.Here(),
        Format("\"@\" cannot be attached: there are @ attachments already (kMaximumAttachments).",
               name, kMaximumAttachments));
  }
  Exchange(*place, stored.release());
  return {};
}

}  // namespace

Result<void> AttachFile(std::string_view path) try {
  std::error_code error;
  return Attach(path, {}, std::filesystem::absolute(path, error).string());
} catch (const std::bad_alloc&) {
  return Error::OutOfMemory(kAttachments.Here());
}

Result<void> AttachText(std::string_view name, std::string_view text) try {
  return Attach(name, text, {});
} catch (const std::bad_alloc&) {
  return Error::OutOfMemory(kAttachments.Here());
}

void RemoveAttachment(std::string_view name) {
  const std::scoped_lock lock(g_lock);
  if (Place* place = PlaceFor(name, false); place != g_places.end()) Exchange(*place, nullptr);
}

const Attachment* LookUpAttachment(std::size_t index) {
  const Stored* stored = index < g_places.size() ? g_places[index].load() : nullptr;
  return stored == nullptr ? nullptr : &stored->view;
}

}  // namespace tarvo
