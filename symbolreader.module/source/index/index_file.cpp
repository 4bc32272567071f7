#include "index/index_file.h"

#include <fcntl.h>
#include <llvm/Support/xxhash.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "index/block_table.h"
#include "index/index_format.h"
#include "index/missing_files.h"
#include "index/varint.h"

namespace tarvo::symbolreader {
namespace {

using Bytes = std::span<const std::uint8_t>;

/// Most chains are no longer.
constexpr std::size_t kUsualChain = 4;

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

/// A mapped file; empty when it could not be mapped.
class Mapping {
 public:
  Mapping(int descriptor, std::size_t size) {
    void* map = size == 0 ? MAP_FAILED : mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);
    if (map != MAP_FAILED) bytes_ = {static_cast<const std::uint8_t*>(map), size};
  }
  Mapping(Mapping&& other) noexcept : bytes_(std::exchange(other.bytes_, {})) {}
  Mapping& operator=(Mapping&&) = delete;
  ~Mapping() {
    if (!bytes_.empty()) munmap(const_cast<std::uint8_t*>(bytes_.data()), bytes_.size());
  }
  [[nodiscard]] Bytes Get() const { return bytes_; }

 private:
  Bytes bytes_;
};

template <typename T>
T ReadAt(Bytes bytes, std::uint64_t place) {
  T value{};
  if (place <= bytes.size() && bytes.size() - place >= sizeof value)
    std::memcpy(&value, bytes.data() + place, sizeof value);
  return value;
}

/// Whether `count` values of the type, aligned, lie at `place` of `size` bytes.
template <typename T>
bool Holds(std::uint64_t size, std::uint64_t place, std::uint64_t count) {
  return place % alignof(T) == 0 && place <= size && count <= (size - place) / sizeof(T);
}

/// The trailer of an index that is whole.
std::optional<IndexTrailer> CheckedTrailer(Bytes bytes, const std::string& key) {
  if (bytes.size() < sizeof(IndexTrailer)) return std::nullopt;
  const std::size_t place = bytes.size() - sizeof(IndexTrailer);
  const auto trailer = ReadAt<IndexTrailer>(bytes, place);
  const Bytes covered = bytes.first(place + offsetof(IndexTrailer, checksum));
  const bool isWhole = trailer.magic == IndexTrailer::kMagic && trailer.version == kIndexVersion &&
                       trailer.size == sizeof trailer && trailer.fileSize == bytes.size() &&
                       trailer.key == llvm::xxh3_64bits(key) && trailer.blocks <= bytes.size() &&
                       trailer.blocks <= BlockTable::kMost && trailer.missing <= bytes.size() &&
                       trailer.strings > 0 &&
                       Holds<IndexBlock>(place, trailer.blocksPlace, trailer.blocks) &&
                       Holds<std::uint64_t>(place, trailer.stringsPlace, trailer.strings) &&
                       trailer.checksum == llvm::xxh3_64bits({covered.data(), covered.size()});
  return isWhole ? std::optional(trailer) : std::nullopt;
}

std::vector<MissingFile> MissingIn(Bytes bytes, const IndexTrailer& trailer) {
  const auto place = std::min<std::uint64_t>(trailer.missingPlace, bytes.size());
  return DecodeFiles(bytes.subspan(place), trailer.missing);
}

/// A row of a block, with what the next one counts from.
struct Row {
  std::uint64_t body = 0;  ///< place of the part's body in the file
  std::uint64_t node = 0;  ///< place in the part, plus 1
  std::uint64_t file = 0;  ///< place in the part's names
  std::int64_t line = 0;

  /// Goes on to the next row, and returns how many bytes of code that covers. Nearly all numbers
  /// are one byte, and a branch for each of them would be mistaken too often.
  std::uint64_t ReadNext(VarintReader& reader) {
    std::array<std::uint8_t, 4> small;
    if (reader.ReadSmall(small)) {
      Add(VarintReader::Signed(small[1]), VarintReader::Signed(small[2]),
          VarintReader::Signed(small[3]));
      return small[0];
    }
    const std::uint64_t size = reader.Read();
    const std::int64_t nodes = reader.ReadSigned();
    const std::int64_t files = reader.ReadSigned();
    Add(nodes, files, reader.ReadSigned());
    return size;
  }

 private:
  void Add(std::int64_t nodes, std::int64_t files, std::int64_t lines) {
    node += static_cast<std::uint64_t>(nodes);
    file += static_cast<std::uint64_t>(files);
    line += lines;
  }
};

std::string_view PathIn(std::string_view file) { return file.substr(0, file.find(kChecksumMark)); }
std::string_view ChecksumIn(std::string_view file) {
  const std::size_t mark = file.find(kChecksumMark);
  return mark == std::string_view::npos ? std::string_view() : file.substr(mark + 1);
}

class IndexSource final : public SymbolSource {
 public:
  IndexSource(Mapping mapping, const IndexTrailer& trailer)
      : mapping_(std::move(mapping)),
        bytes_(mapping_.Get()),
        blocks_(Values<IndexBlock>(trailer.blocksPlace, trailer.blocks)),
        stringEnds_(Values<std::uint64_t>(trailer.stringsPlace, trailer.strings)),
        strings_(bytes_.subspan(trailer.stringsPlace + trailer.strings * sizeof(std::uint64_t))) {}

  std::optional<AddressChain> Find(std::uint64_t address, NameMemo& names) const override;
  std::size_t Bytes() const override { return bytes_.size(); }

 private:
  template <typename T>
  [[nodiscard]] std::span<const T> Values(std::uint64_t place, std::uint64_t count) const {
    return {reinterpret_cast<const T*>(bytes_.data() + place), count};
  }
  [[nodiscard]] VarintReader ReaderAt(std::uint64_t place) const {
    return VarintReader(bytes_.subspan(std::min<std::uint64_t>(place, bytes_.size())));
  }
  [[nodiscard]] std::optional<Row> FindRow(std::uint64_t address) const;
  [[nodiscard]] std::string_view StringAt(std::uint32_t number) const;
  [[nodiscard]] std::uint32_t NumberOf(std::uint64_t body, std::uint64_t place) const;
  [[nodiscard]] String Name(std::uint32_t number, NameMemo& names) const;
  [[nodiscard]] SourceFrame FileFrame(std::uint32_t number, NameMemo& names) const;
  void AddFrames(const Row& row, std::uint64_t address, NameMemo& names, AddressChain& chain) const;

  const std::uint32_t number_ = NewIndexNumber();
  Mapping mapping_;
  symbolreader::Bytes bytes_;
  BlockTable blocks_;
  std::span<const std::uint64_t> stringEnds_;
  symbolreader::Bytes strings_;
};

std::optional<Row> IndexSource::FindRow(std::uint64_t address) const {
  const IndexBlock* block = blocks_.Find(address);
  if (block == nullptr) return std::nullopt;
  VarintReader reader = ReaderAt(block->place);
  reader.FetchAhead();
  const std::uint64_t rows = std::min<std::uint64_t>(reader.Read(), kRowsPerBlock);
  const std::uint64_t distance = reader.Read();
  if (distance > block->place) return std::nullopt;
  Row row{.body = block->place - distance};
  std::uint64_t left = address - block->start;
  for (std::uint64_t i = 0; i < rows; ++i) {
    const std::uint64_t size = row.ReadNext(reader);
    if (left < size) return row;
    left -= size;
  }
  return std::nullopt;
}

/// `number` is above 0 and one of the strings.
std::string_view IndexSource::StringAt(std::uint32_t number) const {
  const std::uint64_t start = stringEnds_[number - 1];
  const std::uint64_t end = stringEnds_[number];
  if (start > end || end > strings_.size()) return {};
  return {reinterpret_cast<const char*>(strings_.data()) + start, end - start};
}

/// Of the string at `place` among a part's names; 0 where there is none.
std::uint32_t IndexSource::NumberOf(std::uint64_t body, std::uint64_t place) const {
  const auto count = ReadAt<std::uint32_t>(bytes_, body - sizeof(std::uint32_t));
  if (place >= count || (std::uint64_t{count} + 1) * sizeof(std::uint32_t) > body) return 0;
  const auto number =
      ReadAt<std::uint32_t>(bytes_, body - (count + 1 - place) * sizeof(std::uint32_t));
  return number < stringEnds_.size() ? number : 0;
}

String IndexSource::Name(std::uint32_t number, NameMemo& names) const {
  if (number == 0) return {};
  return names.Text(number_, number, [&] { return StringAt(number); });
}

/// A frame with a file and its checksum alone.
SourceFrame IndexSource::FileFrame(std::uint32_t number, NameMemo& names) const {
  if (number == 0) return {};
  // No index has so many strings that one's number is the complement of another's.
  return {.sourceFile = names.Text(number_, number, [&] { return PathIn(StringAt(number)); }),
          .sourceFileChecksum =
              names.Text(number_, ~number, [&] { return ChecksumIn(StringAt(number)); })};
}

/// Adds the row's own frame and those around it.
void IndexSource::AddFrames(const Row& row, std::uint64_t address, NameMemo& names,
                            AddressChain& chain) const {
  std::uint32_t file = NumberOf(row.body, row.file);
  const auto add = [&](std::uint32_t function, std::int64_t line) {
    names.Fetch(number_, file, function);
    SourceFrame& frame = chain.frames.emplace_back(FileFrame(file, names));
    frame.function = Name(function, names);
    frame.line = line;
  };
  if (row.node == 0) return add(0, row.line);
  std::int64_t line = row.line;
  for (std::uint64_t place = row.node - 1; chain.frames.size() < kLongestChain;) {
    VarintReader reader = ReaderAt(row.body + place);
    const std::uint32_t function = NumberOf(row.body, reader.Read());
    const std::uint64_t head = reader.Read();
    if (head & 1) chain.symbolOffset = address - reader.Read();
    add(function, line);
    const std::uint64_t distance = head >> 1;
    if (distance == 0 || distance > place) return;
    place -= distance;
    file = NumberOf(row.body, reader.Read());
    line = static_cast<std::int64_t>(reader.Read());
  }
}

std::optional<AddressChain> IndexSource::Find(std::uint64_t address, NameMemo& names) const {
  const auto row = FindRow(address);
  if (!row) return std::nullopt;
  AddressChain chain;
  chain.frames.reserve(kUsualChain);
  AddFrames(*row, address, names, chain);
  if (chain.frames.size() == 1 && chain.frames.front() == SourceFrame{}) return std::nullopt;
  return chain;
}

}  // namespace

FoundIndex OpenIndex(const std::string& path, const std::string& key,
                     const std::string& debugFile) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (file.Get() < 0) return {};
  struct stat status{};
  if (fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode))
    return {.state = IndexState::Damaged};
  Mapping mapping(file.Get(), static_cast<std::size_t>(status.st_size));
  const auto trailer = CheckedTrailer(mapping.Get(), key);
  if (!trailer) return {.state = IndexState::Damaged};
  auto missing = MissingIn(mapping.Get(), *trailer);
  if (HasOneCome(missing, debugFile)) return {.state = IndexState::Outdated};
  // Notes the use, for who clears away what is not used: not all file systems do.
  constexpr std::array<timespec, 2> kNow = {timespec{0, UTIME_NOW}, timespec{0, UTIME_OMIT}};
  (void)futimens(file.Get(), kNow.data());
  return {.state = IndexState::Usable,
          .source = std::make_unique<IndexSource>(std::move(mapping), *trailer),
          .imageStart = trailer->imageStart,
          .imageEnd = trailer->imageEnd,
          .missing = std::move(missing)};
}

}  // namespace tarvo::symbolreader
