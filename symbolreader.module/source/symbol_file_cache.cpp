#include "symbol_file_cache.h"

#include <sys/stat.h>

#include <chrono>
#include <optional>

#include "files/bundle.h"
#include "tarvo/format.h"

namespace tarvo::symbolreader {

/// One file, or the error of opening it. `mutex` guards `outcome` and is held while it is opened;
/// `bytes` and `isHeld` belong to the cache's mutex.
struct SymbolFileCache::Entry {
  std::string key;
  std::mutex mutex;
  std::optional<Result<SymbolFileRef>> outcome;
  std::size_t bytes = 0;
  bool isHeld = true;
  std::chrono::steady_clock::time_point lookedAt{};  ///< when its missing parts were; by `mutex`

  /// Whether a part that the open file lacks has come.
  [[nodiscard]] bool HasPartCome();
};

/// Few parts are looked at each time, many once a second.
bool SymbolFileCache::Entry::HasPartCome() {
  constexpr std::size_t kFew = 100;
  if (!outcome || !*outcome || (**outcome)->missing.empty()) return false;
  const SymbolFile& file = ***outcome;
  const auto now = std::chrono::steady_clock::now();
  if (file.missing.size() > kFew && now - lookedAt < std::chrono::seconds(1)) return false;
  lookedAt = now;
  return HasOneCome(file.missing, file.path);
}

namespace {

/// What tells this file in this state from all others. Empty when it cannot be looked at.
std::string KeyOf(const std::string& path, const DebugFileRequest& request) {
  struct stat status{};
  if (stat(path.c_str(), &status) != 0) return {};
  return Format("@ @ @ @ @.@ @ @ @ @", path, status.st_dev, status.st_ino, status.st_size,
                status.st_mtim.tv_sec, status.st_mtim.tv_nsec, request.architecture, request.id,
                request.takesSymbolTable, request.platform)
      .ToStdString();
}

}  // namespace

SymbolFileCache& SymbolFileCache::Instance() {
  static SymbolFileCache cache;
  return cache;
}

Result<SymbolFileRef> SymbolFileCache::Open(const std::string& bundle,
                                            const DebugFileRequest& request) {
  const auto path = FindDebugFile(bundle);
  if (!path) return path.GetError();
  const std::string key = KeyOf(*path, request);
  if (key.empty()) return OpenSymbolFile(*path, request);
  const std::shared_ptr<Entry> entry = Use(key);
  const std::scoped_lock lock(entry->mutex);
  if (!entry->outcome || entry->HasPartCome()) {
    entry->outcome = OpenSymbolFile(*path, request);
    const bool isOpen = static_cast<bool>(*entry->outcome);
    Account(entry, isOpen ? (**entry->outcome)->source->Bytes() : 0);
  }
  return *entry->outcome;
}

std::shared_ptr<SymbolFileCache::Entry> SymbolFileCache::Use(const std::string& key) {
  const std::scoped_lock lock(mutex_);
  if (const auto place = places_.find(key); place != places_.end()) {
    entries_.splice(entries_.begin(), entries_, place->second);
    return entries_.front();
  }
  auto entry = std::make_shared<Entry>();
  entry->key = key;
  entries_.push_front(entry);
  places_.emplace(entry->key, entries_.begin());
  Drop();
  return entry;
}

void SymbolFileCache::Account(const std::shared_ptr<Entry>& entry, std::size_t bytes) {
  const std::scoped_lock lock(mutex_);
  if (!entry->isHeld) return;
  bytes_ += bytes - entry->bytes;
  entry->bytes = bytes;
  Drop();
}

/// Lets go from the end, but keeps the one that was used last.
void SymbolFileCache::Drop() {
  while (entries_.size() > 1 && (entries_.size() > mostFiles_ || bytes_ > mostBytes_)) {
    const std::shared_ptr<Entry>& last = entries_.back();
    last->isHeld = false;
    bytes_ -= last->bytes;
    places_.erase(last->key);
    entries_.pop_back();
  }
}

void SymbolFileCache::Clear() {
  Entries dropped;
  const std::scoped_lock lock(mutex_);
  for (const auto& entry : entries_) entry->isHeld = false;
  dropped.swap(entries_);
  places_.clear();
  bytes_ = 0;
}

SymbolFileCache::Load SymbolFileCache::Held() const {
  const std::scoped_lock lock(mutex_);
  return {.files = entries_.size(), .bytes = bytes_};
}

}  // namespace tarvo::symbolreader
