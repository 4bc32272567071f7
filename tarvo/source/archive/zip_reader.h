#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tarvo/result.h"

struct archive;

namespace tarvo {

struct ArchiveLibrary;

/// One entry of an archive, as its header tells.
struct ZipEntry {
  enum class Kind { File, Directory, Link, Other };

  std::string path;
  Kind kind = Kind::Other;
  std::uint64_t bytes = 0;  ///< of its content, as its header says; 0 where that says nothing
  bool isExecutable = false;
  bool isEncrypted = false;
  std::string linkTarget;  ///< of a Link
};

/// One pass through a zip archive, which must have its central directory. Reads at its own
/// position, so several readers may share a descriptor. Used by one thread.
///
/// Errors say when the archive is empty, cut off or over the limit; otherwise they carry the reader
/// library's text. What the library takes for damage that it can read
/// around (a checksum or a size that does not fit) is an error too.
class ZipReader {
 public:
  /// `file` outlives the reader. `maximumEntries` bounds what the library may read, and keep,
  /// before the first entry is known.
  ZipReader(int file, std::int64_t maximumEntries);
  ~ZipReader();
  ZipReader(const ZipReader&) = delete;
  ZipReader& operator=(const ZipReader&) = delete;

  /// Before all else, once. Loads the archive library.
  Result<void> Open();
  /// Moves to the next entry, in the order of their places in the file, and describes it; false at
  /// the end. Costs little when the entry before was not read.
  Result<bool> Next(ZipEntry& entry);
  /// The next bytes of the current entry's content, valid until the next call; none at its end.
  Result<std::string_view> ReadBlock();

 private:
  struct Close {
    const ArchiveLibrary* library;
    void operator()(archive* reader) const noexcept;
  };
  struct Input;

  [[nodiscard]] Error Failure(SourceLocation where) const;

  const int file_;
  const std::int64_t maximumEntries_;
  bool isRead_ = false;  ///< the directory, so that there was an entry
  std::unique_ptr<Input> input_;
  std::unique_ptr<archive, Close> reader_;
};

}  // namespace tarvo
