#include "archive/zip_extraction.h"

#include <locale.h>
#include <pthread.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>
#include <optional>
#include <system_error>
#include <thread>
#include <vector>

#include "archive/entry_path.h"
#include "archive/extraction_tree.h"
#include "archive/system_failure.h"
#include "archive/zip_reader.h"
#include "tarvo/format.h"

namespace tarvo {
namespace {

constexpr SourceFile kZipExtraction{"tarvo/source/zip_extraction"};

constexpr off_t kBytesForThread = 4 << 20;  ///< of the archive; less is not worth a thread
constexpr unsigned kMaximumThreads = 4;

/// While it lives, the reader library takes names for UTF-8 in this thread, whatever the process's
/// locale is.
class Utf8Names {
 public:
  Utf8Names() {
    // One for all extractions, and for good: what it converts with is made once.
    static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (utf8 != nullptr) before_ = uselocale(utf8);
  }
  ~Utf8Names() {
    if (before_ != nullptr) uselocale(before_);
  }
  Utf8Names(const Utf8Names&) = delete;
  Utf8Names& operator=(const Utf8Names&) = delete;

 private:
  locale_t before_ = nullptr;
};

Result<void> WriteAll(int file, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = Uninterrupted([&] { return write(file, bytes.data(), bytes.size()); });
    if (written < 0) return SystemFailure(kZipExtraction.Here(), errno);
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return {};
}

/// One extraction, shared by its threads. Each passes through the archive with a reader of its own
/// and extracts the entries that it claims.
class Extraction {
 public:
  Extraction(int file, const Url& archive, int directory, const Url& place,
             const ArchiveLimits& limits, ExtractionProgress& progress)
      : file_(file),
        archive_(archive),
        directory_(directory),
        place_(place),
        limits_(limits),
        progress_(progress),
        budget_(limits) {}

  Result<void> Run() {
    progress_.done = 0;
    progress_.all = ThreadsWorthwhile() > 1 ? ContentBytes() : 0;
    std::vector<std::jthread> threads;
    for (unsigned i = 1; i < ThreadsWorthwhile(); ++i) {
      try {
        threads.emplace_back([this] {
          pthread_setname_np(pthread_self(), "tarvo-extract");
          Work();
        });
      } catch (const std::system_error&) {
        break;  // no thread to be had: the others do its part
      }
    }
    Work();
    threads.clear();
    if (error_) return *error_;
    return {};
  }

 private:
  [[nodiscard]] unsigned ThreadsWorthwhile() const {
    struct stat status{};
    if (fstat(file_, &status) != 0) return 1;
    const off_t most = std::min(std::thread::hardware_concurrency(), kMaximumThreads);
    return static_cast<unsigned>(std::clamp<off_t>(status.st_size / kBytesForThread, 1, most));
  }

  /// What the headers say is in the archive; 0 where they cannot be read, which is told later.
  [[nodiscard]] std::uint64_t ContentBytes() const {
    const Utf8Names names;
    ZipReader reader(file_, limits_.entries);
    std::uint64_t bytes = 0;
    ZipEntry entry;
    if (!reader.Open()) return 0;
    for (;;) {
      const Result<bool> isThere = reader.Next(entry);
      if (!isThere) return 0;
      if (!*isThere) return bytes;
      bytes += entry.bytes;
    }
  }

  void Work() try {
    const Utf8Names names;
    ZipEntry entry;
    const Result<void> worked = WorkThrough(entry);
    if (!worked) Fail(entry, worked.GetError());
  } catch (const std::bad_alloc&) {
    Fail({}, Error::File(kZipExtraction.Here(), "there is no memory left", Url()));
  }

  Result<void> WorkThrough(ZipEntry& entry) {
    ZipReader reader(file_, limits_.entries);
    ExtractionTree tree(directory_, budget_);
    if (auto opened = reader.Open(); !opened) return opened;
    for (std::size_t passed = 0;;) {
      const std::size_t claimed = next_.fetch_add(1);
      for (; passed <= claimed; ++passed) {
        const Result<bool> isThere = reader.Next(entry);
        if (!isThere) return isThere.GetError();
        if (!*isThere || isOver_) return {};
      }
      if (auto extracted = Extract(entry, reader, tree); !extracted) return extracted;
    }
  }

  Result<void> Extract(const ZipEntry& entry, ZipReader& reader, ExtractionTree& tree) {
    if (entry.isEncrypted) return Error::Plain(kZipExtraction.Here(), "it is encrypted");
    switch (entry.kind) {
      case ZipEntry::Kind::Directory:
        return tree.MakeDirectory(entry.path);
      case ZipEntry::Kind::Link:
        return tree.MakeLink(entry.path, entry.linkTarget);
      case ZipEntry::Kind::File:
        return ExtractFile(entry, reader, tree);
      case ZipEntry::Kind::Other:
        break;
    }
    return Error::Plain(kZipExtraction.Here(), "it is neither file, directory nor symbolic link");
  }

  Result<void> ExtractFile(const ZipEntry& entry, ZipReader& reader, ExtractionTree& tree) {
    Result<FileDescriptor> file = tree.MakeFile(entry.path, entry.isExecutable);
    if (!file) return file.GetError();
    for (;;) {
      const Result<std::string_view> block = reader.ReadBlock();
      if (!block) return block.GetError();
      if (block->empty() || isOver_) break;
      if (auto taken = budget_.TakeBytes(block->size()); !taken) return taken;
      if (auto written = WriteAll(file->Get(), *block); !written) return written;
      progress_.done.fetch_add(block->size(), std::memory_order_relaxed);
    }
    if (file->Close()) return {};
    return SystemFailure(kZipExtraction.Here(), errno);
  }

  /// Ends the work of all threads. The first failure is the extraction's.
  void Fail(const ZipEntry& entry, const Error& reason) {
    const std::scoped_lock lock(mutex_);
    isOver_ = true;
    if (error_) return;
    const String where =
        entry.path.empty() ? String() : Format("entry \"@\": ", NameForMessage(entry.path));
    error_ = Error::File(kZipExtraction.Here(),
                         Format("Could not extract \"@\": @@", archive_, where, reason.Text()),
                         reason.ClassId() == Error::kFile ? place_ : archive_);
  }

  const int file_;
  const Url& archive_;
  const int directory_;
  const Url& place_;
  const ArchiveLimits limits_;
  ExtractionProgress& progress_;
  ExtractionBudget budget_;
  std::atomic<std::size_t> next_{0};
  std::atomic<bool> isOver_{false};
  std::mutex mutex_;
  std::optional<Error> error_;
};

}  // namespace

Result<void> ExtractZip(int file, const Url& archive, int directory, const Url& place,
                        const ArchiveLimits& limits, ExtractionProgress& progress) {
  return Extraction(file, archive, directory, place, limits, progress).Run();
}

}  // namespace tarvo
