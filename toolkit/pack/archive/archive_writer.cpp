#include "toolkit/pack/archive/archive_writer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "tarvo/format.h"
#include "toolkit/base/regular_file.h"
#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kArchiveWriter{"command/pack/archive_writer"};

/// The first day that the format can tell: the files' own times would differ from job to job.
constexpr zip_uint16_t kFirstDay = (1 << 5) | 1;
constexpr zip_uint32_t kFileMode = zip_uint32_t{S_IFREG | 0644} << 16;
constexpr zip_uint32_t kDirectoryMode = zip_uint32_t{S_IFDIR | 0755} << 16 | 0x10;

std::string TextOf(int code) {
  zip_error_t error;
  zip_error_init_with_code(&error, code);
  std::string text = zip_error_strerror(&error);
  zip_error_fini(&error);
  return text;
}

int SyncFile(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const mode_t mask = umask(0);
  umask(mask);
  const bool isDone = file >= 0 && fchmod(file, 0666 & ~mask) == 0 && fsync(file) == 0;
  const int reason = isDone ? 0 : errno;
  if (file >= 0) close(file);
  return reason;
}

}  // namespace

ArchiveReader::ArchiveReader(zip* archive) : archive_(archive) {
  const zip_int64_t count = zip_get_num_entries(archive_, 0);
  for (zip_int64_t i = 0; i < count; ++i) {
    const char* name = zip_get_name(archive_, static_cast<zip_uint64_t>(i), ZIP_FL_ENC_RAW);
    names_.emplace_back(name == nullptr ? "" : name);
  }
}
ArchiveReader::~ArchiveReader() { zip_discard(archive_); }

Result<std::unique_ptr<ArchiveReader>> ArchiveReader::Open(const std::string& path) {
  std::error_code error;
  if (!fs::exists(fs::symlink_status(path, error))) return std::unique_ptr<ArchiveReader>();
  int code = 0;
  zip* archive = zip_open(path.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &code);
  if (archive != nullptr) return std::unique_ptr<ArchiveReader>(new ArchiveReader(archive));
  return Error::File(kArchiveWriter.Here(),
                     Format("Cannot add to \"@\": found no whole archive (@), expected one; "
                            "--replace writes another one in its place.",
                            SafeText(path), TextOf(code)),
                     Url::FromSystemPath(path));
}

bool ArchiveReader::Extract(std::size_t index, const std::string& to, std::uint64_t limit) const {
  zip_file_t* entry = zip_fopen_index(archive_, index, 0);
  if (entry == nullptr) return false;
  const File file(std::fopen(to.c_str(), "wbxe"));
  std::array<char, 1 << 16> bytes;
  bool isWhole = file != nullptr;
  for (zip_int64_t size = 0;
       isWhole && (size = zip_fread(entry, bytes.data(), bytes.size())) != 0;) {
    const auto count = static_cast<std::size_t>(std::max<zip_int64_t>(size, 0));
    isWhole =
        size > 0 && count <= limit && std::fwrite(bytes.data(), 1, count, file.get()) == count;
    limit -= std::min<std::uint64_t>(limit, count);
  }
  isWhole = zip_fclose(entry) == 0 && isWhole;
  return isWhole && std::fflush(file.get()) == 0;
}

std::string ArchiveReader::Read(std::size_t index, std::uint64_t limit) const {
  zip_file_t* entry = zip_fopen_index(archive_, index, 0);
  if (entry == nullptr) return {};
  std::string text;
  std::array<char, 1 << 16> bytes;
  zip_int64_t size = 0;
  while ((size = zip_fread(entry, bytes.data(), bytes.size())) > 0 && text.size() <= limit)
    text.append(bytes.data(), static_cast<std::size_t>(size));
  const bool isWhole = zip_fclose(entry) == 0 && size == 0 && text.size() <= limit;
  return isWhole ? text : std::string();
}

void ArchiveWriter::Reading::Add(std::uint64_t bytes) {
  done = std::min(done + bytes, all);
  if (onProgress && all != 0) onProgress(static_cast<double>(done) / static_cast<double>(all));
}

/// A content as the zip library asks for it.
struct ArchiveWriter::Source {
  EntryContent content;
  Reading& reading;
  ContentReader reader{content};
  zip_error_t error{};

  Source(EntryContent c, Reading& r) : content(std::move(c)), reading(r) {
    zip_error_init(&error);
    reading.all += content.Size();
  }
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;
  ~Source() { zip_error_fini(&error); }

  zip_int64_t Fail(int code) {
    zip_error_set(&error, code, errno);
    return -1;
  }
  zip_int64_t Tell(void* data) const {
    auto* const stat = static_cast<zip_stat_t*>(data);
    zip_stat_init(stat);
    stat->size = content.Size();
    stat->valid = ZIP_STAT_SIZE;
    return sizeof *stat;
  }
  static zip_int64_t Answer(void* state, void* data, zip_uint64_t size, zip_source_cmd_t command) {
    auto& source = *static_cast<Source*>(state);
    switch (command) {
      case ZIP_SOURCE_OPEN:
        return source.reader.Open() ? 0 : source.Fail(ZIP_ER_OPEN);
      case ZIP_SOURCE_READ: {
        const std::int64_t count = source.reader.Read(static_cast<char*>(data), size);
        if (count < 0) return source.Fail(ZIP_ER_READ);
        source.reading.Add(static_cast<std::uint64_t>(count));
        return count;
      }
      case ZIP_SOURCE_STAT:
        return source.Tell(data);
      case ZIP_SOURCE_ERROR:
        return zip_error_to_data(&source.error, data, size);
      case ZIP_SOURCE_CLOSE:
        source.reader.Close();
        return 0;
      case ZIP_SOURCE_FREE:
        return 0;
      case ZIP_SOURCE_SUPPORTS:
        return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE,
                                              ZIP_SOURCE_STAT, ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE,
                                              -1);
      default:
        return source.Fail(ZIP_ER_OPNOTSUPP);
    }
  }
};

ArchiveWriter::ArchiveWriter(std::string path, PackDirectory directory)
    : path_(std::move(path)), directory_(std::move(directory)) {}

ArchiveWriter::~ArchiveWriter() {
  if (archive_ != nullptr) zip_discard(archive_);
}

Result<std::unique_ptr<ArchiveWriter>> ArchiveWriter::Create(const std::string& path) {
  const std::string parent = fs::path(path).parent_path().native();
  auto directory = PackDirectory::Make(parent.empty() ? "." : parent);
  if (!directory) return directory.GetError();
  std::unique_ptr<ArchiveWriter> made(new ArchiveWriter(path, *std::move(directory)));
  int code = 0;
  made->archive_ =
      zip_open((made->Scratch() + "/archive.zip").c_str(), ZIP_CREATE | ZIP_EXCL, &code);
  if (made->archive_ == nullptr) return WriteFailure(kArchiveWriter.Here(), path, TextOf(code));
  return made;
}

Error ArchiveWriter::Failure(SourceLocation where) const {
  return WriteFailure(where, path_, zip_error_strerror(zip_get_error(archive_)));
}

Result<void> ArchiveWriter::Complete(std::int64_t index, bool isDirectory) {
  const auto place = static_cast<zip_uint64_t>(index);
  if (index < 0 || zip_file_set_dostime(archive_, place, 0, kFirstDay, 0) != 0 ||
      zip_file_set_external_attributes(archive_, place, 0, ZIP_OPSYS_UNIX,
                                       isDirectory ? kDirectoryMode : kFileMode) != 0)
    return Failure(kArchiveWriter.Here());
  return {};
}

Result<void> ArchiveWriter::AddDirectory(const std::string& name) {
  return Complete(zip_dir_add(archive_, name.c_str(), ZIP_FL_ENC_GUESS), true);
}

Result<void> ArchiveWriter::AddFile(const std::string& name, EntryContent content) {
  Source& state = sources_.emplace_back(std::move(content), reading_);
  zip_source_t* source = zip_source_function(archive_, &Source::Answer, &state);
  if (source == nullptr) return Failure(kArchiveWriter.Here());
  const zip_int64_t index = zip_file_add(archive_, name.c_str(), source, ZIP_FL_ENC_GUESS);
  if (index < 0) zip_source_free(source);
  return Complete(index, false);
}

Result<void> ArchiveWriter::Copy(const ArchiveReader& from, std::size_t index,
                                 const std::string& name) {
  if (name.ends_with('/')) return AddDirectory(name);
  zip_source_t* source = zip_source_zip(archive_, from.Handle(), index, ZIP_FL_COMPRESSED, 0, -1);
  if (source == nullptr) return Failure(kArchiveWriter.Here());
  const zip_int64_t added = zip_file_add(archive_, name.c_str(), source, ZIP_FL_ENC_GUESS);
  if (added < 0) zip_source_free(source);
  return Complete(added, false);
}

Result<std::uint64_t> ArchiveWriter::Finish(const OnProgress& onProgress) {
  // The library's own progress counts entries, whatever their sizes.
  reading_.onProgress = onProgress;
  const std::string made = Scratch() + "/archive.zip";
  if (zip_close(archive_) != 0) return Failure(kArchiveWriter.Here());
  archive_ = nullptr;
  struct stat status{};
  if (const int reason = SyncFile(made); reason != 0)
    return WriteFailure(kArchiveWriter.Here(), path_, std::strerror(reason));
  if (stat(made.c_str(), &status) != 0 || rename(made.c_str(), path_.c_str()) != 0)
    return WriteFailure(kArchiveWriter.Here(), path_, std::strerror(errno));
  return static_cast<std::uint64_t>(status.st_size);
}

}  // namespace tarvo::toolkit
