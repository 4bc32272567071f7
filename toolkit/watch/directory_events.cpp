#include "toolkit/watch/directory_events.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "tarvo/format.h"

namespace tarvo::toolkit {
namespace {

using Kind = DirectoryEvent::Kind;

constexpr SourceFile kDirectoryEvents{"command/watch/directory_events"};
constexpr std::uint32_t kWanted = IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE |
                                  IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr std::uint32_t kLost = IN_Q_OVERFLOW | IN_DELETE_SELF | IN_MOVE_SELF;

std::optional<Kind> KindOf(std::uint32_t mask) {
  constexpr std::array<std::pair<std::uint32_t, Kind>, 5> kKinds{{{kLost, Kind::Lost},
                                                                  {IN_MODIFY, Kind::Written},
                                                                  {IN_CLOSE_WRITE, Kind::Closed},
                                                                  {IN_MOVED_TO, Kind::Moved},
                                                                  {IN_CREATE, Kind::Made}}};
  for (const auto& [bits, kind] : kKinds)
    if ((mask & bits) != 0)
      return (mask & IN_ISDIR) != 0 && kind != Kind::Lost ? Kind::Directory : kind;
  return std::nullopt;
}

}  // namespace

Result<DirectoryEvents> DirectoryEvents::Make() {
  FileDescriptor events(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  if (!events.IsOpen())
    return Error::IllegalState(kDirectoryEvents.Here(),
                               Format("The kernel tells no events: @", std::strerror(errno)));
  return DirectoryEvents(std::move(events));
}

bool DirectoryEvents::Add(const std::string& directory) {
  const int watch = inotify_add_watch(events_.Get(), directory.c_str(), kWanted);
  if (watch >= 0) directories_[watch] = directory;
  return watch >= 0;
}

std::vector<DirectoryEvent> DirectoryEvents::Take() {
  std::vector<DirectoryEvent> taken;
  alignas(inotify_event) std::array<char, 1 << 16> bytes{};
  ssize_t count = 0;
  while ((count = Uninterrupted([&] { return read(events_.Get(), bytes.data(), bytes.size()); })) >
         0) {
    for (const char* at = bytes.data(); at < bytes.data() + count;) {
      inotify_event event{};
      std::memcpy(&event, at, sizeof event);
      const std::string name = event.len == 0 ? std::string() : std::string(at + sizeof event);
      at += sizeof event + event.len;
      const auto directory = directories_.find(event.wd);
      if (const auto kind = KindOf(event.mask);
          kind && (*kind == Kind::Lost || directory != directories_.end()))
        taken.push_back(
            {*kind, *kind == Kind::Lost ? std::string() : directory->second + "/" + name});
      // A directory that was moved has another path now.
      if ((event.mask & IN_MOVE_SELF) != 0) inotify_rm_watch(events_.Get(), event.wd);
      if ((event.mask & IN_IGNORED) != 0) directories_.erase(event.wd);
    }
  }
  return taken;
}

}  // namespace tarvo::toolkit
