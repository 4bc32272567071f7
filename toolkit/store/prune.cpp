#include "toolkit/store/prune.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <tuple>
#include <utility>

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;
using std::chrono::system_clock;

constexpr std::string_view kPrunedIdentityName = ".tarvo-archive-";
constexpr std::string_view kPrunedRetiredName = ".tarvo-retired-";

struct Item {
  PrunedItem shown;
  system_clock::time_point used;
  bool isLeftOver = false;
};

/// Of a file the later of the times of access and of change; of a directory that of its change, for
/// looking into it counts as an access.
system_clock::time_point UsedAt(const fs::path& path) {
  struct stat status{};
  if (lstat(path.c_str(), &status) != 0) return {};
  const auto changed = status.st_mtim.tv_sec;
  return system_clock::from_time_t(
      S_ISDIR(status.st_mode) ? changed : std::max(status.st_atim.tv_sec, changed));
}

/// By which a file is known again that was replaced or touched meanwhile; alike where there is
/// none.
using FileStamp = std::tuple<ino_t, time_t, long>;

FileStamp StampOf(const fs::path& path) {
  struct stat status{};
  if (lstat(path.c_str(), &status) != 0) return {};
  return {status.st_ino, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

fs::path IdentityOf(const fs::path& unpacked) {
  return unpacked.parent_path() / (std::string(kPrunedIdentityName) + unpacked.filename().native());
}

/// Of an unpacked archive the file of its identity, or it itself, is touched when it is used.
system_clock::time_point LastUsed(const fs::path& path) {
  return std::max(UsedAt(path), UsedAt(IdentityOf(path)));
}

std::uint64_t BytesOf(const fs::path& path) {
  std::error_code error;
  if (!fs::is_directory(fs::symlink_status(path, error))) {
    const std::uintmax_t size = fs::file_size(path, error);
    return error ? 0 : size;
  }
  std::uint64_t bytes = 0;
  for (auto entry = fs::recursive_directory_iterator(path, error);
       !error && entry != fs::recursive_directory_iterator(); entry.increment(error))
    if (entry->symlink_status(error).type() == fs::file_type::regular)
      bytes += entry->file_size(error);
  return bytes;
}

class Pruner {
 public:
  explicit Pruner(const PruneOptions& options) : options_(options) {}

  Pruned Run() {
    Collect(options_.cache, &Pruner::AddUnpacked);
    Collect(options_.indices, &Pruner::AddIndex);
    std::ranges::sort(items_, std::ranges::greater{}, &Item::used);
    for (Item& item : items_) Judge(item);
    return std::move(pruned_);
  }

 private:
  using Add = void (Pruner::*)(const fs::path& path, const std::string& name);

  void Collect(const std::string& directory, Add add) {
    if (directory.empty()) return;
    std::error_code error;
    for (auto entry = fs::directory_iterator(directory, error);
         !error && entry != fs::directory_iterator(); entry.increment(error))
      (this->*add)(entry->path(), entry->path().filename().native());
  }

  void Take(const fs::path& path, system_clock::time_point used, bool isLeftOver) {
    items_.push_back({{.path = path.native(),
                       .bytes = BytesOf(path),
                       .unused = std::chrono::duration_cast<std::chrono::hours>(now_ - used),
                       .reason = {},
                       .error = {}},
                      used,
                      isLeftOver});
  }

  /// A directory with the file of its identity.
  void AddUnpacked(const fs::path& path, const std::string& name) {
    std::error_code error;
    const bool isDirectory = fs::is_directory(fs::symlink_status(path, error));
    const bool isUnpacked =
        isDirectory && (fs::exists(IdentityOf(path), error) || name.find('~') != std::string::npos);
    if (name.starts_with(kPrunedRetiredName)) return Take(path, UsedAt(path), true);
    if (isUnpacked) Take(path, LastUsed(path), false);
  }

  void AddIndex(const fs::path& path, const std::string& name) {
    constexpr std::array<std::string_view, 2> kKept = {".index", ".failed"};
    const bool isKept =
        std::ranges::any_of(kKept, [&](std::string_view suffix) { return name.ends_with(suffix); });
    if (isKept || name.ends_with(".tmp")) Take(path, UsedAt(path), !isKept);
  }

  void Judge(Item& item) {
    const bool isInUse = now_ - item.used < kShortestUnused;
    const bool isOver =
        options_.mostBytes && pruned_.keptBytes + item.shown.bytes > *options_.mostBytes;
    if (item.isLeftOver) {
      item.shown.reason = "left over";
    } else if (now_ - item.used > options_.unused) {
      const auto hours = item.shown.unused.count();
      constexpr auto kDay = 24;
      item.shown.reason =
          "not used for " + (hours < 2 * kDay ? std::to_string(hours) + " hours"
                                              : std::to_string(hours / kDay) + " days");
    } else if (isOver) {
      item.shown.reason = "over the size";
    }
    // Somebody may have begun to use it since it was listed.
    const bool isNeeded = isInUse || LastUsed(item.shown.path) != item.used;
    if (isNeeded || item.shown.reason.empty()) {
      pruned_.keptBytes += item.shown.bytes;
      return;
    }
    if (!options_.isDryRun) Remove(item.shown);
    pruned_.items.push_back(std::move(item.shown));
  }

  /// A directory is moved away first: nobody shall find half of it. Who misses it may have unpacked
  /// it again before its identity is removed, which is the new one's then, and stays.
  void Remove(PrunedItem& item) {
    std::error_code error;
    const fs::path path = item.path;
    const FileStamp identity = StampOf(IdentityOf(path));
    if (!fs::is_directory(fs::symlink_status(path, error))) {
      fs::remove(path, error);
    } else {
      const fs::path moved = path.parent_path() / (std::string(kPrunedRetiredName) + "prune-" +
                                                   std::to_string(getpid()) + "-" +
                                                   std::to_string(pruned_.items.size()));
      fs::rename(path, moved, error);
      if (!error) fs::remove_all(moved, error);
      std::error_code ignored;
      if (StampOf(IdentityOf(path)) == identity) fs::remove(IdentityOf(path), ignored);
    }
    if (error) item.error = error.message();
  }

  const PruneOptions& options_;
  const system_clock::time_point now_ = system_clock::now();
  std::vector<Item> items_;
  Pruned pruned_;
};

}  // namespace

Pruned Prune(const PruneOptions& options) { return Pruner(options).Run(); }

}  // namespace tarvo::toolkit
