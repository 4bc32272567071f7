#include "toolkit/pack/archive_writer.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "tarvo/format.h"
#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kArchiveWriter{"command/pack/archive_writer"};

Error FileError(SourceLocation where, const std::string& path, std::string_view reason) {
  return Error::File(where, Format("Could not write \"@\": @", SafeText(path), reason),
                     Url::FromSystemPath(path));
}

constexpr std::string_view kTemporaryName = ".tarvo-pack-";
constexpr int kNameAttempts = 100;

/// Whether the file is this process's now; one that was unlinked is nobody's.
bool TakeLock(int descriptor) {
  struct stat status{};
  return flock(descriptor, LOCK_EX | LOCK_NB) == 0 && fstat(descriptor, &status) == 0 &&
         status.st_nlink != 0;
}

/// Removes what killed processes have left in `directory`: the lock of their files is free.
void ClearLeft(const fs::path& directory) {
  std::error_code end;
  fs::directory_iterator entries(directory, end);
  for (; !end && entries != fs::directory_iterator(); entries.increment(end)) {
    if (!entries->path().filename().string().starts_with(kTemporaryName)) continue;
    const int descriptor =
        open(entries->path().c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) continue;
    if (TakeLock(descriptor)) unlink(entries->path().c_str());
    close(descriptor);
  }
}

/// A new file in `directory`, locked while it is open; `path` is set to its name.
File MakeTemporaryFile(const fs::path& directory, std::string& path) {
  ClearLeft(directory.empty() ? fs::path(".") : directory);
  for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
    path = (directory / (std::string(kTemporaryName) + "XXXXXX")).native();
    const int descriptor = mkostemp(path.data(), O_CLOEXEC);
    if (descriptor < 0) return nullptr;
    // Another process may take it for left behind before it is locked.
    if (TakeLock(descriptor)) return File(fdopen(descriptor, "w+b"));
    unlink(path.c_str());
    close(descriptor);
  }
  errno = EEXIST;
  return nullptr;
}

struct FreeEntry {
  void operator()(archive_entry* entry) const noexcept { archive_entry_free(entry); }
};

std::unique_ptr<archive_entry, FreeEntry> MakeEntry(const std::string& name, unsigned type,
                                                    unsigned mode, std::uint64_t size) {
  // Without a time, which the format has as local time: it would differ from zone to zone.
  std::unique_ptr<archive_entry, FreeEntry> entry(archive_entry_new());
  archive_entry_set_pathname(entry.get(), name.c_str());
  archive_entry_set_filetype(entry.get(), type);
  archive_entry_set_perm(entry.get(), static_cast<mode_t>(mode));
  archive_entry_set_size(entry.get(), static_cast<std::int64_t>(size));
  return entry;
}

}  // namespace

void ArchiveWriter::FreeArchive::operator()(archive* writer) const noexcept {
  archive_write_free(writer);
}

ArchiveWriter::ArchiveWriter(std::string path, std::string temporary, File file)
    : path_(std::move(path)),
      temporary_(std::move(temporary)),
      file_(std::move(file)),
      writer_(archive_write_new()) {}

ArchiveWriter::~ArchiveWriter() {
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

Result<std::unique_ptr<ArchiveWriter>> ArchiveWriter::Create(const std::string& path) {
  std::string temporary;
  File file = MakeTemporaryFile(fs::path(path).parent_path(), temporary);
  if (!file) return FileError(kArchiveWriter.Here(), path, std::strerror(errno));
  std::unique_ptr<ArchiveWriter> made(
      new ArchiveWriter(path, std::move(temporary), std::move(file)));
  archive* writer = made->writer_.get();
  if (archive_write_set_format_zip(writer) != ARCHIVE_OK ||
      archive_write_zip_set_compression_deflate(writer) != ARCHIVE_OK ||
      archive_write_set_bytes_in_last_block(writer, 1) != ARCHIVE_OK ||
      archive_write_open_fd(writer, fileno(made->file_.get())) != ARCHIVE_OK)
    return made->WriteError(kArchiveWriter.Here(), path);
  return made;
}

Error ArchiveWriter::WriteError(SourceLocation where, const std::string& what) const {
  const char* reason = archive_error_string(writer_.get());
  return FileError(where, what, reason == nullptr ? "unknown reason" : reason);
}

Result<void> ArchiveWriter::AddDirectory(const std::string& name) {
  const auto entry = MakeEntry(name + '/', AE_IFDIR, 0755, 0);
  if (archive_write_header(writer_.get(), entry.get()) != ARCHIVE_OK)
    return WriteError(kArchiveWriter.Here(), name);
  return {};
}

Result<std::uint64_t> ArchiveWriter::AddFile(const std::string& name, const RegularFile& content) {
  const auto entry = MakeEntry(name, AE_IFREG, 0644, content.size);
  if (archive_write_header(writer_.get(), entry.get()) != ARCHIVE_OK)
    return WriteError(kArchiveWriter.Here(), name);
  std::array<char, 1 << 16> buffer;
  std::uint64_t left = content.size;
  while (left > 0) {
    const std::size_t wanted = std::min<std::uint64_t>(left, buffer.size());
    const std::size_t size = std::fread(buffer.data(), 1, wanted, content.file.get());
    if (size == 0) return FileError(kArchiveWriter.Here(), name, "The file ended before its size");
    if (archive_write_data(writer_.get(), buffer.data(), size) != static_cast<la_ssize_t>(size))
      return WriteError(kArchiveWriter.Here(), name);
    left -= size;
  }
  return content.size;
}

Result<std::uint64_t> ArchiveWriter::Finish() {
  if (archive_write_close(writer_.get()) != ARCHIVE_OK)
    return WriteError(kArchiveWriter.Here(), path_);
  const mode_t mask = umask(0);
  umask(mask);
  const int file = fileno(file_.get());
  struct stat status{};
  if (fchmod(file, 0666 & ~mask) != 0 || fsync(file) != 0 || fstat(file, &status) != 0 ||
      rename(temporary_.c_str(), path_.c_str()) != 0)
    return FileError(kArchiveWriter.Here(), path_, std::strerror(errno));
  temporary_.clear();
  return static_cast<std::uint64_t>(status.st_size);
}

Result<File> MakeScratchFile(const std::string& directory) {
  std::string path;
  File file = MakeTemporaryFile(directory, path);
  if (!file) return FileError(kArchiveWriter.Here(), directory, std::strerror(errno));
  unlink(path.c_str());
  return file;
}

}  // namespace tarvo::toolkit
