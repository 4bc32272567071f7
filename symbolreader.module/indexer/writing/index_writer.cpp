#include "indexer/writing/index_writer.h"

#include <llvm/Support/xxhash.h>
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <deque>
#include <utility>

#include "index/index_format.h"
#include "indexer/demangle.h"
#include "indexer/in_parallel.h"
#include "source.h"
#include "tarvo/format.h"

namespace tarvo::symbolreader {
namespace {

constexpr std::size_t kBufferSize = std::size_t{1} << 20;
/// Names that are demangled as one piece of work, and pieces that are in memory at once.
constexpr std::size_t kNamesPerPiece = 2048;
constexpr std::size_t kPiecesAtOnce = 64;

Error NotWritten(SourceLocation where, const std::string& path, int reason) {
  return Error::File(where,
                     Format("The index @ cannot be written: @.", path, std::strerror(reason)),
                     Url::FromSystemPath(path));
}

}  // namespace

/// The strings of the whole index, each once.
class IndexWriter::Strings {
 public:
  Strings() { texts_.push_back({.text = llvm::CachedHashStringRef("", 0)}); }

  std::uint32_t Number(const PartString& string) {
    if (string.text.size() == 0) return 0;
    auto& numbers = string.isMangled ? names_ : paths_;
    if (const auto known = numbers.find(string.text); known != numbers.end()) return known->second;
    PartString own = string;
    if (!own.isLasting)
      own.text = llvm::CachedHashStringRef(own.text.val().copy(storage_), own.text.hash());
    const auto number = static_cast<std::uint32_t>(texts_.size());
    texts_.push_back(own);
    numbers[own.text] = number;
    return number;
  }

  [[nodiscard]] const std::vector<PartString>& Texts() const { return texts_; }

 private:
  std::vector<PartString> texts_;
  llvm::DenseMap<llvm::CachedHashStringRef, std::uint32_t> names_;
  llvm::DenseMap<llvm::CachedHashStringRef, std::uint32_t> paths_;
  llvm::BumpPtrAllocator storage_;
};

IndexWriter::IndexWriter() : strings_(std::make_unique<Strings>()) {}

IndexWriter::~IndexWriter() {
  if (file_ != nullptr) std::fclose(file_);
}

Result<void> IndexWriter::Create(const std::string& path) {
  path_ = path;
  file_ = std::fopen(path.c_str(), "w+xe");
  if (file_ == nullptr) return NotWritten(kSource.Here(), path, errno);
  std::setvbuf(file_, nullptr, _IOFBF, kBufferSize);
  return {};
}

void IndexWriter::Add(std::size_t number, Part part) {
  const std::scoped_lock lock(mutex_);
  const std::size_t place = number - next_;
  if (place >= waiting_.size()) waiting_.resize(place + 1);
  waiting_[place] = std::make_unique<Part>(std::move(part));
  std::size_t ready = 0;
  for (; ready < waiting_.size() && waiting_[ready] != nullptr; ++ready) Commit(*waiting_[ready]);
  waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(ready));
  next_ += ready;
}

void IndexWriter::Commit(const Part& part) {
  if (part.blocks.empty()) return;
  std::vector<std::uint32_t> numbers;
  numbers.reserve(part.names.size() + 1);
  for (const PartString& name : part.names) numbers.push_back(strings_->Number(name));
  numbers.push_back(static_cast<std::uint32_t>(part.names.size()));
  Write(numbers.data(), numbers.size() * sizeof(std::uint32_t));
  for (const PartBlock& block : part.blocks) blocks_.push_back({block.start, size_ + block.place});
  Write(part.body.data(), part.body.size());
}

void IndexWriter::Write(const void* bytes, std::size_t size) {
  hasFailed_ = hasFailed_ || std::fwrite(bytes, 1, size, file_) != size;
  size_ += size;
}

void IndexWriter::Align() {
  constexpr std::uint64_t kZero = 0;
  constexpr std::size_t kAlignment = sizeof kZero;
  Write(&kZero, (kAlignment - size_ % kAlignment) % kAlignment);
}

void IndexWriter::WriteBlocks() {
  std::ranges::sort(blocks_, {},
                    [](const IndexBlock& block) { return std::pair(block.start, block.place); });
  Write(blocks_.data(), blocks_.size() * sizeof(IndexBlock));
}

/// The ends stand in front of the bytes, and are known behind them: they are put in at last.
void IndexWriter::WriteStrings(unsigned threads) {
  const std::vector<PartString>& texts = strings_->Texts();
  std::vector<std::uint64_t> ends(texts.size());
  const std::uint64_t endsPlace = size_;
  Write(ends.data(), ends.size() * sizeof(std::uint64_t));
  std::uint64_t end = 0;
  std::vector<std::vector<std::string>> pieces(kPiecesAtOnce);
  constexpr std::size_t kNamesAtOnce = kNamesPerPiece * kPiecesAtOnce;
  for (std::size_t first = 0; first < texts.size(); first += kNamesAtOnce) {
    const std::size_t last = std::min(texts.size(), first + kNamesAtOnce);
    const std::size_t count = (last - first + kNamesPerPiece - 1) / kNamesPerPiece;
    InParallel(threads, count, [&](std::size_t piece) {
      pieces[piece].clear();
      const std::size_t from = first + piece * kNamesPerPiece;
      for (std::size_t i = from; i < std::min(from + kNamesPerPiece, last); ++i) {
        const std::string_view text = texts[i].text.val();
        pieces[piece].push_back(texts[i].isMangled ? Demangle(text) : std::string(text));
      }
    });
    for (std::size_t i = first; i < last; ++i) {
      const std::string& text = pieces[(i - first) / kNamesPerPiece][(i - first) % kNamesPerPiece];
      Write(text.data(), text.size());
      ends[i] = end += text.size();
    }
  }
  const std::uint64_t size = size_;
  hasFailed_ = hasFailed_ || fseeko(file_, static_cast<off_t>(endsPlace), SEEK_SET) != 0;
  Write(ends.data(), ends.size() * sizeof(std::uint64_t));
  hasFailed_ = hasFailed_ || fseeko(file_, static_cast<off_t>(size), SEEK_SET) != 0;
  size_ = size;
}

void IndexWriter::WriteMissing() {
  std::string bytes;
  for (const MissingFile& file : missing_) bytes += Encode(file);
  Write(bytes.data(), bytes.size());
}

Result<void> IndexWriter::Finish(const std::string& key, unsigned threads) {
  if (blocks_.empty())
    return Error::IllegalState(kSource.Here(), "The debug file knows nothing of any address.");
  Align();
  IndexTrailer trailer{.blocks = blocks_.size(), .blocksPlace = size_};
  WriteBlocks();
  trailer.strings = strings_->Texts().size();
  trailer.stringsPlace = size_;
  WriteStrings(threads);
  trailer.missing = missing_.size();
  trailer.missingPlace = size_;
  WriteMissing();
  Align();
  trailer.fileSize = size_ + sizeof trailer;
  trailer.imageStart = image_.start;
  trailer.imageEnd = image_.end;
  trailer.key = llvm::xxh3_64bits(key);
  const std::size_t covered = size_ + offsetof(IndexTrailer, checksum);
  Write(&trailer, sizeof trailer);
  if (hasFailed_ || std::fflush(file_) != 0) return NotWritten(kSource.Here(), path_, errno);
  // What was written is in memory still: the checksum over all of it costs no reading.
  void* map = mmap(nullptr, trailer.fileSize, PROT_READ, MAP_SHARED, fileno(file_), 0);
  if (map == MAP_FAILED) return NotWritten(kSource.Here(), path_, errno);
  trailer.checksum = llvm::xxh3_64bits({static_cast<const std::uint8_t*>(map), covered});
  munmap(map, trailer.fileSize);
  if (fseeko(file_, static_cast<off_t>(size_ - sizeof trailer), SEEK_SET) != 0)
    return NotWritten(kSource.Here(), path_, errno);
  Write(&trailer, sizeof trailer);
  if (hasFailed_ || std::fclose(std::exchange(file_, nullptr)) != 0)
    return NotWritten(kSource.Here(), path_, errno);
  return {};
}

}  // namespace tarvo::symbolreader
