#include "source/zip_reader.h"

#include <archive.h>
#include <archive_entry.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <utility>

#include "source/file_descriptor.h"

namespace tarvo {
namespace {

constexpr SourceFile kSource{"tarvo/source/zip_reader"};

/// What the central directory holds for an entry on average, generously: 46 bytes and a path.
constexpr std::int64_t kDirectoryBytesForEntry = 256;
constexpr std::int64_t kFreeDirectoryBytes = 4 << 20;

ZipEntry::Kind KindOf(archive_entry* entry) {
  if (archive_entry_hardlink(entry) != nullptr) return ZipEntry::Kind::Other;
  switch (archive_entry_filetype(entry)) {
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

std::string TextOrEmpty(const char* text) { return text == nullptr ? std::string() : text; }

}  // namespace

/// Where the library's reads come from. It seeks before every entry, mostly to where it has just
/// read, so what was read last is kept and given again.
struct ZipReader::Input {
  int file;
  std::int64_t size = 0;
  std::int64_t position = 0;
  std::int64_t left;  ///< how many bytes may still be read
  std::int64_t keptFrom = 0;
  std::int64_t keptTo = 0;
  std::array<char, 256 * 1024> kept;

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
      archive_set_error(reader, EFBIG, "its directory is larger than the limit of entries allows");
      return false;
    }
    const ssize_t count =
        Uninterrupted([&] { return pread(file, kept.data(), kept.size(), position); });
    if (count < 0) {
      archive_set_error(reader, errno, "its file could not be read");
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

void ZipReader::Close::operator()(archive* reader) const noexcept { archive_read_free(reader); }

ZipReader::ZipReader(int file, std::int64_t maximumEntries)
    : input_(std::make_unique<Input>()), reader_(archive_read_new()) {
  input_->file = file;
  input_->size = std::max<std::int64_t>(0, lseek(file, 0, SEEK_END));
  input_->left =
      std::min(maximumEntries, input_->size) * kDirectoryBytesForEntry + kFreeDirectoryBytes;
}

ZipReader::~ZipReader() = default;

Error ZipReader::Failure(SourceLocation where) const {
  const char* text = archive_error_string(reader_.get());
  return Error::Plain(where, text == nullptr ? "the archive cannot be read" : text);
}

Result<void> ZipReader::Open() {
  if (reader_ == nullptr) return Error::OutOfMemory(kSource.Here());
  archive* const reader = reader_.get();
  // The form without a central directory is not supported on purpose: an archive that has lost it
  // was cut off.
  const bool isOpen = archive_read_support_format_zip_seekable(reader) == ARCHIVE_OK &&
                      archive_read_set_read_callback(reader, Input::Read) == ARCHIVE_OK &&
                      archive_read_set_skip_callback(reader, Input::Skip) == ARCHIVE_OK &&
                      archive_read_set_seek_callback(reader, Input::Seek) == ARCHIVE_OK &&
                      archive_read_set_callback_data(reader, input_.get()) == ARCHIVE_OK &&
                      archive_read_open1(reader) == ARCHIVE_OK;
  return isOpen ? Result<void>() : Failure(kSource.Here());
}

Result<bool> ZipReader::Next(ZipEntry& entry) {
  archive_entry* header = nullptr;
  const int status = archive_read_next_header(reader_.get(), &header);
  if (status == ARCHIVE_EOF) return false;
  if (header != nullptr) entry.path = TextOrEmpty(archive_entry_pathname(header));
  if (status != ARCHIVE_OK) return Failure(kSource.Here());
  input_->left = std::numeric_limits<std::int64_t>::max();
  entry.kind = KindOf(header);
  entry.isExecutable = (archive_entry_perm(header) & 0111) != 0;
  entry.isEncrypted = archive_entry_is_encrypted(header) != 0;
  entry.linkTarget = TextOrEmpty(archive_entry_symlink(header));
  return true;
}

Result<std::string_view> ZipReader::ReadBlock() {
  const void* bytes = nullptr;
  std::size_t size = 0;
  la_int64_t offset = 0;
  int status = ARCHIVE_OK;
  while (status == ARCHIVE_OK && size == 0)
    status = archive_read_data_block(reader_.get(), &bytes, &size, &offset);
  if (status == ARCHIVE_EOF) return std::string_view();
  if (status != ARCHIVE_OK) return Failure(kSource.Here());
  return std::string_view(static_cast<const char*>(bytes), size);
}

}  // namespace tarvo
