#include "index/index_file.h"

#include <fcntl.h>
#include <llvm/DebugInfo/GSYM/GsymReader.h>
#include <llvm/Support/xxhash.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <span>

#include "index/index_format.h"

namespace tarvo::symbolreader {
namespace {

/// A descriptor that is closed at the end.
class Descriptor {
 public:
  explicit Descriptor(int value) : value_(value) {}
  ~Descriptor() {
    if (value_ >= 0) close(value_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  [[nodiscard]] int Get() const { return value_; }

 private:
  int value_;
};

bool IsWhole(std::span<const std::uint8_t> bytes, const std::string& key) {
  if (bytes.size() < sizeof(IndexTrailer)) return false;
  IndexTrailer trailer;
  std::memcpy(&trailer, bytes.last(sizeof trailer).data(), sizeof trailer);
  const auto covered =
      bytes.first(bytes.size() - sizeof trailer + offsetof(IndexTrailer, checksum));
  return trailer.magic == IndexTrailer::kMagic && trailer.version == kIndexVersion &&
         trailer.size == sizeof trailer && trailer.fileSize == bytes.size() &&
         trailer.key == llvm::xxh3_64bits(key) &&
         trailer.checksum == llvm::xxh3_64bits({covered.data(), covered.size()});
}

bool IsWhole(int descriptor, std::size_t size, const std::string& key) {
  void* map = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);
  if (map == MAP_FAILED) return false;
  const bool isWhole = IsWhole({static_cast<const std::uint8_t*>(map), size}, key);
  munmap(map, size);
  return isWhole;
}

class IndexSource final : public SymbolSource {
 public:
  IndexSource(llvm::gsym::GsymReader reader, std::size_t bytes)
      : reader_(std::move(reader)), bytes_(bytes) {}

  std::optional<AddressChain> Find(std::uint64_t address) const override;
  std::size_t Bytes() const override { return bytes_; }

 private:
  llvm::gsym::GsymReader reader_;
  std::size_t bytes_;
};

String JoinPath(llvm::StringRef directory, llvm::StringRef name) {
  if (directory.empty()) return String(std::string_view(name));
  const bool needsSlash = !directory.ends_with("/");
  return String::Build(directory.size() + 1 + name.size(), [&](char* to) {
    to = std::ranges::copy(directory, to).out;
    if (needsSlash) *to++ = '/';
    std::ranges::copy(name, to);
    return directory.size() + (needsSlash ? 1 : 0) + name.size();
  });
}

std::optional<AddressChain> IndexSource::Find(std::uint64_t address) const {
  auto found = reader_.lookup(address);
  if (!found) {
    llvm::consumeError(found.takeError());
    return std::nullopt;
  }
  SourceFrame position;
  if (found->FuncName != llvm::StringRef(kNoFunction))
    position.function = String(std::string_view(found->FuncName));
  if (!found->Locations.empty()) {
    const auto& location = found->Locations.front();
    position.sourceFile = JoinPath(location.Dir, location.Base);
    position.line = location.Line;
  }
  return AddressChain{.frames = {std::move(position)}};
}

}  // namespace

FoundIndex OpenIndex(const std::string& path, const std::string& key) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (file.Get() < 0) return {};
  struct stat status{};
  if (fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode))
    return {.state = IndexState::Damaged, .source = nullptr};
  const auto size = static_cast<std::size_t>(status.st_size);
  if (!IsWhole(file.Get(), size, key)) return {.state = IndexState::Damaged, .source = nullptr};
  // By its descriptor: another process may have put another file under the name meanwhile.
  auto reader = llvm::gsym::GsymReader::openFile("/proc/self/fd/" + std::to_string(file.Get()));
  if (!reader) {
    llvm::consumeError(reader.takeError());
    return {.state = IndexState::Damaged, .source = nullptr};
  }
  return {.state = IndexState::Usable,
          .source = std::make_unique<IndexSource>(std::move(*reader), size)};
}

}  // namespace tarvo::symbolreader
