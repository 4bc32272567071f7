#include "archive/zip_reader.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <utility>

#include "archive/archive_library.h"
#include "files/file_descriptor.h"
#include "tarvo/format.h"

namespace tarvo {
namespace {

constexpr SourceFile kZipReader{"tarvo/source/zip_reader"};

/// What the central directory holds for an entry on average, generously: 46 bytes and a path.
constexpr std::int64_t kDirectoryBytesForEntry = 256;
constexpr std::int64_t kFreeDirectoryBytes = 4 << 20;

ZipEntry::Kind KindOf(const ArchiveLibrary& library, archive_entry* entry) {
  if (library.hardLink(entry) != nullptr) return ZipEntry::Kind::Other;
  switch (library.fileType(entry)) {
    case AE_IFREG:
      return ZipEntry::Kind::File;
    case AE_IFDIR:
      return ZipEntry::Kind::Directory;
    case AE_IFLNK:
      return ZipEntry::Kind::Link;
    default:
      return ZipEntry::Kind::Other;
  }
}

/// Whether an entry stands at the start of the file, as in every whole archive.
bool StartsLikeZip(int file) {
  constexpr std::string_view kEntry = "PK\x03\x04";
  std::array<char, kEntry.size()> start{};
  const ssize_t size = Uninterrupted([&] { return pread(file, start.data(), start.size(), 0); });
  return size == static_cast<ssize_t>(kEntry.size()) &&
         std::string_view(start.data(), start.size()) == kEntry;
}

std::string TextOrEmpty(const char* text) { return text == nullptr ? std::string() : text; }

}  // namespace

/// Where the library's reads come from. It seeks before every entry, mostly to where it has just
/// read, so what was read last is kept and given again.
struct ZipReader::Input {
  const ArchiveLibrary& library;
  int file;
  std::int64_t size = 0;
  std::int64_t position = 0;
  std::int64_t left = 0;  ///< how many bytes may still be read
  bool isOverLimit = false;
  std::int64_t keptFrom = 0;
  std::int64_t keptTo = 0;
  std::array<char, 256 * 1024> kept{};

  static la_ssize_t Read(archive* reader, void* self, const void** bytes) {
    auto& input = *static_cast<Input*>(self);
    const bool isKept = input.position >= input.keptFrom && input.position < input.keptTo;
    if (!isKept && !input.Fill(reader)) return -1;
    *bytes = input.kept.data() + (input.position - input.keptFrom);
    return input.keptTo - std::exchange(input.position, input.keptTo);
  }
  /// Reads what stands at the position; nothing at the end of the file.
  bool Fill(archive* reader) {
    if (left <= 0) {
      // The library puts words of its own over an error's text.
      isOverLimit = true;
      library.setError(reader, EFBIG, "over the limit");
      return false;
    }
    const ssize_t count =
        Uninterrupted([&] { return pread(file, kept.data(), kept.size(), position); });
    if (count < 0) {
      library.setError(reader, errno, "its file could not be read");
      return false;
    }
    keptFrom = position;
    keptTo = position + count;
    left -= count;
    return true;
  }
  static la_int64_t Skip(archive*, void* self, la_int64_t count) {
    auto& input = *static_cast<Input*>(self);
    const std::int64_t skipped = std::clamp<std::int64_t>(input.size - input.position, 0, count);
    input.position += skipped;
    return skipped;
  }
  static la_int64_t Seek(archive*, void* self, la_int64_t offset, int whence) {
    auto& input = *static_cast<Input*>(self);
    const std::int64_t base =
        whence == SEEK_SET ? 0 : (whence == SEEK_CUR ? input.position : input.size);
    input.position = std::max<std::int64_t>(0, base + offset);
    return input.position;
  }
};

void ZipReader::Close::operator()(archive* reader) const noexcept { library->readFree(reader); }

ZipReader::ZipReader(int file, std::int64_t maximumEntries)
    : file_(file), maximumEntries_(maximumEntries), reader_(nullptr, Close{nullptr}) {}

ZipReader::~ZipReader() = default;

Error ZipReader::Failure(SourceLocation where) const {
  if (input_->isOverLimit) {
    return Error::Plain(where, Format("the archive's directory is larger than @ entries need "
                                      "(g_archiveMaximumEntries)",
                                      maximumEntries_));
  }
  if (input_->size == 0) return Error::Plain(where, "the archive is empty");
  if (!isRead_ && StartsLikeZip(file_)) {
    return Error::Plain(
        where,
        "the archive is cut off: its directory, which stands at its end, is missing "
        "or damaged");
  }
  const char* text = input_->library.errorText(reader_.get());
  return Error::Plain(where, text == nullptr ? "the archive cannot be read" : text);
}

Result<void> ZipReader::Open() {
  const auto loaded = ArchiveLibrary::Load();
  if (!loaded) return loaded.GetError();
  const ArchiveLibrary& library = **loaded;
  input_.reset(new Input{.library = library, .file = file_});
  input_->size = std::max<std::int64_t>(0, lseek(file_, 0, SEEK_END));
  input_->left =
      std::min(maximumEntries_, input_->size) * kDirectoryBytesForEntry + kFreeDirectoryBytes;
  reader_ = {library.readNew(), Close{&library}};
  if (reader_ == nullptr) return Error::OutOfMemory(kZipReader.Here());
  archive* const reader = reader_.get();
  // The form without a central directory is not supported on purpose: an archive that has lost it
  // was cut off.
  const bool isOpen = library.supportZip(reader) == ARCHIVE_OK &&
                      library.setRead(reader, Input::Read) == ARCHIVE_OK &&
                      library.setSkip(reader, Input::Skip) == ARCHIVE_OK &&
                      library.setSeek(reader, Input::Seek) == ARCHIVE_OK &&
                      library.setData(reader, input_.get()) == ARCHIVE_OK &&
                      library.open(reader) == ARCHIVE_OK;
  return isOpen ? Result<void>() : Failure(kZipReader.Here());
}

Result<bool> ZipReader::Next(ZipEntry& entry) {
  const ArchiveLibrary& library = input_->library;
  archive_entry* header = nullptr;
  const int status = library.nextHeader(reader_.get(), &header);
  if (status == ARCHIVE_EOF) return false;
  if (header != nullptr) entry.path = TextOrEmpty(library.path(header));
  if (status != ARCHIVE_OK) return Failure(kZipReader.Here());
  isRead_ = true;
  input_->left = std::numeric_limits<std::int64_t>::max();
  entry.kind = KindOf(library, header);
  entry.bytes = static_cast<std::uint64_t>(std::max<la_int64_t>(library.size(header), 0));
  entry.isExecutable = (library.permissions(header) & 0111) != 0;
  entry.isEncrypted = library.isEncrypted(header) != 0;
  entry.linkTarget = TextOrEmpty(library.symbolicLink(header));
  return true;
}

Result<std::string_view> ZipReader::ReadBlock() {
  const void* bytes = nullptr;
  std::size_t size = 0;
  la_int64_t offset = 0;
  int status = ARCHIVE_OK;
  while (status == ARCHIVE_OK && size == 0)
    status = input_->library.readBlock(reader_.get(), &bytes, &size, &offset);
  if (status == ARCHIVE_EOF) return std::string_view();
  if (status != ARCHIVE_OK) return Failure(kZipReader.Here());
  return std::string_view(static_cast<const char*>(bytes), size);
}

}  // namespace tarvo
