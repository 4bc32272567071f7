#include "toolkit/watch/arrivals.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "toolkit/report/report_text.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;
using Kind = DirectoryEvent::Kind;

/// So many files are looked at in one go; the others' turn comes with the next.
constexpr std::size_t kMostLooks = 20'000;

bool IsReport(std::string_view path) {
  const std::string_view name = path.substr(path.rfind('/') + 1);
  return !name.starts_with('.') && report::IsReportFileName(name);
}

/// How long ago the file says that it has changed.
std::chrono::nanoseconds AgeOf(const FileState& state) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(now) -
         std::chrono::nanoseconds(state.time);
}

}  // namespace

Result<Arrivals> Arrivals::Make(std::vector<std::string> directories,
                                std::chrono::seconds patience) {
  Result<DirectoryEvents> events = DirectoryEvents::Make();
  if (!events) return events.GetError();
  // One spelling, so that no path has a second one.
  for (std::string& directory : directories)
    while (directory.size() > 1 && directory.ends_with('/')) directory.pop_back();
  std::ranges::sort(directories);
  const auto doubled = std::ranges::unique(directories);
  directories.erase(doubled.begin(), doubled.end());
  return Arrivals(std::move(directories), patience, *std::move(events));
}

// --- What is noticed -----------------------------------------------------------------------------

Arrivals::File& Arrivals::Wait(const std::string& path, SteadyTime now) {
  const auto [entry, isNew] = files_.try_emplace(path);
  File& file = entry->second;
  if (isNew) file.sighting = sightings_;
  if (!file.isWaiting) {
    file.isWaiting = true;
    file.unchangedSince = now;
    waiting_.push_back(&*entry);
  }
  return file;
}

void Arrivals::TakeEvents(SteadyTime now) {
  for (const DirectoryEvent& event : events_.Take()) {
    if (event.kind == Kind::Lost) hasLost_ = true;
    if (event.kind == Kind::Directory) {
      Sighting ignored;
      if (!fs::path(event.path).filename().string().starts_with('.'))
        LookAt(event.path, now, ignored);
    }
    if (event.kind == Kind::Lost || event.kind == Kind::Directory || !IsReport(event.path))
      continue;
    File& file = Wait(event.path, now);
    const bool isDone = event.kind == Kind::Closed || event.kind == Kind::Moved;
    if (isDone || event.kind == Kind::Written) {
      file.isClosed = isDone;
      file.isWritten = !isDone;
      file.unchangedSince = now;
    }
  }
}

void Arrivals::Hear(const std::string& directory) {
  if (events_.Add(directory) || !deafness_.empty() || errno == ENOENT || errno == EACCES) return;
  deafness_ = errno == ENOSPC ? "fs.inotify.max_user_watches is too small" : std::strerror(errno);
}

void Arrivals::LookAt(const std::string& directory, SteadyTime now, Sighting& sighting) {
  // First, so that nothing comes in between unnoticed.
  Hear(directory);
  std::error_code error;
  std::vector<std::string> below;
  for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code unknown;
    const std::string path = entry->path().string();
    if (entry->path().filename().string().starts_with('.')) continue;
    if (entry->is_directory(unknown) && !entry->is_symlink(unknown)) below.push_back(path);
    if (!IsReport(path)) continue;
    const auto state = LookAtFile(path);
    if (!state) continue;
    const auto known = files_.find(path);
    if (known != files_.end()) known->second.sighting = sightings_;
    if (known != files_.end() && (known->second.isWaiting || known->second.handedOut == state))
      continue;
    Wait(path, now).state = *state;
  }
  if (error) sighting.unreadable.emplace_back(directory, error.message());
  for (const std::string& path : below) LookAt(path, now, sighting);
}

Sighting Arrivals::LookAtAll(SteadyTime now) {
  hasLost_ = false;
  ++sightings_;
  Sighting sighting{.gone = std::exchange(gone_, {}), .unreadable = {}};
  for (const std::string& directory : directories_) LookAt(directory, now, sighting);
  std::erase_if(files_, [&](const Entry& entry) {
    const auto& [path, file] = entry;
    const auto isBelow = [&](const auto& unread) { return path.starts_with(unread.first + "/"); };
    if (file.isWaiting || file.sighting == sightings_ ||
        std::ranges::any_of(sighting.unreadable, isBelow))
      return false;
    sighting.gone.push_back(path);
    return true;
  });
  return sighting;
}

// --- What is whole -------------------------------------------------------------------------------

bool Arrivals::IsWhole(Entry& entry, const FileState& state, SteadyTime now) const {
  auto& [path, file] = entry;
  if (std::exchange(file.state, state) != state) {
    file.unchangedSince = now;
    if (!file.isClosed) return false;
  }
  const auto unchanged = now - file.unchangedSince;
  if (!file.isClosed && unchanged < kBetweenLooks) return false;
  const ReportEnd end = LookAtEnd(path);
  if (file.isClosed && end != ReportEnd::Missing) return true;
  if (unchanged >= kBetweenLooks && !file.isWritten && end == ReportEnd::Seen) return true;
  const bool isOld = unchanged >= patience_ || AgeOf(state) >= patience_;
  return isOld && unchanged >= kBetweenLooks && (!file.isWritten || end == ReportEnd::Seen);
}

std::vector<std::string> Arrivals::TakeWhole(std::size_t most, SteadyTime now) {
  std::vector<std::string> whole;
  for (std::size_t i = std::min(waiting_.size(), kMostLooks); i > 0 && whole.size() < most; --i) {
    Entry& entry = *waiting_.front();
    waiting_.pop_front();
    const auto state = LookAtFile(entry.first);
    if (!state) {
      gone_.push_back(entry.first);
      files_.erase(gone_.back());
      continue;
    }
    File& file = entry.second;
    const bool isKnown = file.handedOut == *state && !file.isWritten;
    if (!isKnown && !IsWhole(entry, *state, now)) {
      waiting_.push_back(&entry);
      continue;
    }
    file.isWaiting = file.isClosed = file.isWritten = false;
    if (!isKnown) whole.push_back(entry.first);
    file.handedOut = *state;
  }
  return whole;
}

}  // namespace tarvo::toolkit
