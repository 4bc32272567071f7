#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "tarvo/result.h"
#include "toolkit/base/regular_file.h"

struct archive;

namespace tarvo::toolkit {

/// Writes a zip archive that is there as a whole or not at all: it grows in a temporary file beside
/// its place, and takes that place (and that of an older archive) in one step when it is complete
/// and on the disk. The same entries give the same bytes: no times, owners or modes of the files go
/// in.
///
///     auto writer = ArchiveWriter::Create("archives/B1_dsym.zip");
///     (*writer)->AddFile("lib.so.dsym", file);
///     (*writer)->Finish();
///
/// All errors are file errors that name the archive, or the entry.
class ArchiveWriter {
 public:
  /// `path` is in a directory that exists.
  static Result<std::unique_ptr<ArchiveWriter>> Create(const std::string& path);
  /// Without Finish removes what was written.
  ~ArchiveWriter();
  ArchiveWriter(const ArchiveWriter&) = delete;
  ArchiveWriter& operator=(const ArchiveWriter&) = delete;

  Result<void> AddDirectory(const std::string& name);
  /// The whole of `content`, a regular file, in pieces. Returns its size in bytes.
  Result<std::uint64_t> AddFile(const std::string& name, const RegularFile& content);
  /// Returns the archive's size in bytes.
  Result<std::uint64_t> Finish();

 private:
  ArchiveWriter(std::string path, std::string temporary, File file);
  Error WriteError(SourceLocation where, const std::string& what) const;

  std::string path_;
  std::string temporary_;  ///< empty once it has its place
  File file_;
  struct FreeArchive {
    void operator()(archive* writer) const noexcept;
  };
  std::unique_ptr<archive, FreeArchive> writer_;
};

/// An empty file in `directory` that is gone when it is closed, open for writing and reading.
Result<File> MakeScratchFile(const std::string& directory);

}  // namespace tarvo::toolkit
