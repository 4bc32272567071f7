#include "toolkit/store/archive_tree.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>

#include "tarvo/symbol_archive.h"
#include "toolkit/base/regular_file.h"
#include "toolkit/base/sha256.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kIdentityDigits = 32;

// The zip format (APPNOTE 6.3.10): at the end the record of the end of the directory (4.3.16), a
// comment of at most 65535 bytes behind it; where a number does not fit, the one of zip64 (4.3.14),
// which a locator (4.3.15) right in front of it points to.
constexpr std::string_view kEnd{"PK\5\6", 4};
constexpr std::string_view kLocator{"PK\6\7", 4};
constexpr std::string_view kEnd64{"PK\6\6", 4};
constexpr std::size_t kEndBytes = 22;
constexpr std::size_t kLocatorBytes = 20;
constexpr std::size_t kEnd64Bytes = 56;
constexpr std::size_t kTailBytes = 65535 + kEndBytes + kLocatorBytes;
constexpr std::uint32_t kElsewhere = 0xFFFFFFFF;

template <typename Number>
Number NumberAt(std::string_view bytes, std::size_t at) noexcept {
  Number number{};
  std::memcpy(&number, bytes.data() + at, sizeof number);  // little-endian, as this machine
  return number;
}

std::string Read(std::FILE* file, std::uint64_t offset, std::size_t size) {
  std::string bytes(size, '\0');
  if (fseeko(file, static_cast<off_t>(offset), SEEK_SET) != 0) return {};
  bytes.resize(std::fread(bytes.data(), 1, size, file));
  return bytes;
}

struct Extent {
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
};

/// Where the zip file's directory lies; `tail` is the file's end.
std::optional<Extent> DirectoryOf(const RegularFile& zip, std::string_view tail) {
  const std::size_t end = tail.rfind(kEnd);
  if (end == std::string_view::npos || tail.size() - end < kEndBytes) return std::nullopt;
  Extent extent{NumberAt<std::uint32_t>(tail, end + 16), NumberAt<std::uint32_t>(tail, end + 12)};
  const std::size_t locator = end - std::min(end, kLocatorBytes);
  const bool isLarge = extent.offset == kElsewhere || extent.size == kElsewhere;
  if (isLarge && tail.substr(locator).starts_with(kLocator)) {
    const auto at = NumberAt<std::uint64_t>(tail, locator + 8);
    if (at > zip.size) return std::nullopt;
    const std::string large = Read(zip.file.get(), at, kEnd64Bytes);
    if (large.size() != kEnd64Bytes || !large.starts_with(kEnd64)) return std::nullopt;
    extent = {NumberAt<std::uint64_t>(large, 48), NumberAt<std::uint64_t>(large, 40)};
  }
  const bool isInside = extent.offset <= zip.size && extent.size <= zip.size - extent.offset;
  return isInside ? std::optional(extent) : std::nullopt;
}

std::string Digits(Sha256& hash) { return hash.TakeHexadecimal().substr(0, kIdentityDigits); }

/// Whether all of it could be read.
bool AddTo(Sha256& hash, const RegularFile& file, Extent extent) {
  constexpr std::uint64_t kPiece = 1 << 16;
  while (extent.size != 0) {
    const std::string piece = Read(file.file.get(), extent.offset, std::min(extent.size, kPiece));
    if (piece.empty()) return false;
    hash.Add(piece);
    extent = {extent.offset + piece.size(), extent.size - piece.size()};
  }
  return true;
}

}  // namespace

std::string IdentifyArchive(const std::string& file) {
  const Result<RegularFile> zip = OpenRegularFile(file);
  if (!zip || !Sha256::Load()) return "unreadable";
  const std::uint64_t behind = zip->size - std::min<std::uint64_t>(zip->size, kTailBytes);
  const std::string tail = Read(zip->file.get(), behind, kTailBytes);
  Sha256 hash;
  const auto directory = DirectoryOf(*zip, tail);
  if (directory && AddTo(hash, *zip, *directory)) return "zip-" + Digits(hash);
  (void)hash.TakeHexadecimal();
  hash.Add(std::to_string(zip->size) + ":");
  hash.Add(tail);
  return "incomplete-" + Digits(hash);
}

std::vector<ArchiveState> ArchiveTree::Of(std::string_view build) {
  const std::scoped_lock lock(mutex_);
  if (!isListed_) List();
  const auto found = archives_.find(build);
  if (found == archives_.end()) return {};
  for (ArchiveState& archive : found->second)
    if (archive.identity.empty()) archive.identity = IdentifyArchive(archive.file);
  return found->second;
}

std::vector<std::string> ArchiveTree::Builds() {
  const std::scoped_lock lock(mutex_);
  if (!isListed_) List();
  std::vector<std::string> builds;
  for (const auto& [build, archives] : archives_) builds.push_back(build);
  return builds;
}

std::vector<std::string> ArchiveTree::FilesOf(std::string_view build) {
  const std::scoped_lock lock(mutex_);
  if (!isListed_) List();
  std::vector<std::string> files;
  if (const auto found = archives_.find(build); found != archives_.end())
    for (const ArchiveState& archive : found->second) files.push_back(archive.file);
  return files;
}

void ArchiveTree::List() {
  isListed_ = true;
  for (const Url& directory : directories_)
    if (!directory.IsEmpty()) List(directory);
}

void ArchiveTree::List(const Url& directory) {
  std::map<std::string, std::vector<ArchiveState>> found;
  std::error_code end;
  fs::recursive_directory_iterator entries(directory.SystemPath().View(),
                                           fs::directory_options::skip_permission_denied, end);
  for (; !end && entries != fs::recursive_directory_iterator(); entries.increment(end)) {
    const std::string name = entries->path().filename().string();
    if (!name.ends_with(symbol_archive::kSuffix)) continue;
    found[name.substr(0, name.size() - symbol_archive::kSuffix.size())].push_back(
        {entries->path().string(), {}});
  }
  for (auto& [build, archives] : found) {
    std::ranges::sort(archives, {}, &ArchiveState::file);
    auto& all = archives_[build];
    all.insert(all.end(), archives.begin(), archives.end());
  }
}

}  // namespace tarvo::toolkit
