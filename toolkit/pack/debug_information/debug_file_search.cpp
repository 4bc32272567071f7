#include "toolkit/pack/debug_information/debug_file_search.h"

#include <algorithm>
#include <filesystem>
#include <mutex>

#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostFilesBelow = 1'000'000;
constexpr std::size_t kNamedPlaces = 12;

}  // namespace

std::vector<std::string> DebugFileSearch::Find(const std::vector<std::string>& paths,
                                               const std::string& name, const std::string& id,
                                               const std::string& suffix) {
  std::vector<std::string> found;
  for (const std::string& path : paths) Try(path, found);
  for (const std::string& given : places_.given)
    if (!name.empty() && fs::path(given).filename() == name) Try(given, found);
  for (const fs::path directory : places_.directories) {
    if (id.size() > 2)
      Try(directory / ".build-id" / id.substr(0, 2) / (id.substr(2) + suffix), found);
    if (name.empty()) continue;
    Try(directory / name, found);
    const auto [first, last] = FilesBelow(directory).equal_range(name);
    for (auto file = first; file != last; ++file) Try(file->second, found);
  }
  return found;
}

void DebugFileSearch::Try(const std::string& path, std::vector<std::string>& found) {
  std::error_code error;
  if (std::ranges::find(found, path) != found.end()) return;
  if (fs::is_regular_file(path, error)) return found.push_back(path);
  if (std::ranges::find(tried_, path) == tried_.end()) tried_.push_back(path);
}

std::string DebugFileSearch::Tried() const {
  std::string text;
  for (std::size_t i = 0; i < std::min(tried_.size(), kNamedPlaces); ++i)
    text += (i == 0 ? "; looked for in \"" : ", \"") + SafeText(tried_[i]) + '"';
  if (tried_.size() > kNamedPlaces)
    text += " and " + std::to_string(tried_.size() - kNamedPlaces) + " other places";
  return text;
}

const std::multimap<std::string, std::string>& DebugFileSearch::FilesBelow(
    const std::string& directory) {
  static std::mutex mutex;
  static std::map<std::string, std::multimap<std::string, std::string>> listings;
  const std::scoped_lock lock(mutex);
  const auto [listing, isNew] = listings.try_emplace(directory);
  if (!isNew) return listing->second;
  std::error_code error;
  fs::recursive_directory_iterator entry(directory, fs::directory_options::skip_permission_denied,
                                         error);
  for (std::size_t seen = 0;
       !error && entry != fs::recursive_directory_iterator() && seen < kMostFilesBelow;
       entry.increment(error), ++seen)
    if (entry->is_regular_file(error))
      listing->second.emplace(entry->path().filename().native(), entry->path().native());
  return listing->second;
}

}  // namespace tarvo::toolkit
