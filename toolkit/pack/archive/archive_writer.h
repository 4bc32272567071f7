#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tarvo/result.h"
#include "toolkit/pack/archive/entry_content.h"
#include "toolkit/pack/archive/pack_lock.h"

struct zip;

namespace tarvo::toolkit {

/// An archive that is there, for reading.
class ArchiveReader {
 public:
  /// Nothing where there is no such file; a file error when it is no whole zip archive.
  static Result<std::unique_ptr<ArchiveReader>> Open(const std::string& path);
  ~ArchiveReader();
  ArchiveReader(const ArchiveReader&) = delete;
  ArchiveReader& operator=(const ArchiveReader&) = delete;

  /// The entries' names as they stand in it, directories with "/" at their ends.
  [[nodiscard]] const std::vector<std::string>& Names() const noexcept { return names_; }
  /// Writes an entry's content, at most `limit` bytes, to the new file `to`; whether that went
  /// well.
  [[nodiscard]] bool Extract(std::size_t index, const std::string& to, std::uint64_t limit) const;
  /// An entry's content; empty where it cannot be read or has more than `limit` bytes.
  [[nodiscard]] std::string Read(std::size_t index, std::uint64_t limit) const;
  [[nodiscard]] zip* Handle() const noexcept { return archive_; }

 private:
  explicit ArchiveReader(zip* archive);

  zip* archive_;
  std::vector<std::string> names_;
};

/// Writes a zip archive that is there as a whole or not at all: it grows in a directory of its own
/// beside its place, and takes that place (and that of an older archive) in one step when it is
/// complete and on the disk. The same entries in the same order give the same bytes: no times,
/// owners or modes of the files go in. Contents are read in pieces when it is finished.
///
/// All errors are file errors that name the archive.
class ArchiveWriter {
 public:
  using OnProgress = std::function<void(double part)>;  ///< from 0 to 1

  /// `path` is in a directory that exists.
  static Result<std::unique_ptr<ArchiveWriter>> Create(const std::string& path);
  ~ArchiveWriter();
  ArchiveWriter(const ArchiveWriter&) = delete;
  ArchiveWriter& operator=(const ArchiveWriter&) = delete;

  Result<void> AddDirectory(const std::string& name);
  Result<void> AddFile(const std::string& name, EntryContent content);
  /// An entry of another archive as it is packed there, under the name `name`, which ends with "/"
  /// as its own does; `from` lives until the end of Finish.
  Result<void> Copy(const ArchiveReader& from, std::size_t index, const std::string& name);
  /// A directory on the same disk, for files that are needed meanwhile.
  [[nodiscard]] const std::string& Scratch() const noexcept { return directory_.Path(); }

  /// Returns the archive's size in bytes.
  Result<std::uint64_t> Finish(const OnProgress& onProgress = {});

 private:
  struct Source;
  /// How much of the new contents was read.
  struct Reading {
    std::uint64_t all = 0;
    std::uint64_t done = 0;
    OnProgress onProgress{};

    void Add(std::uint64_t bytes);
  };
  ArchiveWriter(std::string path, PackDirectory directory);
  Result<void> Complete(std::int64_t index, bool isDirectory);
  Error Failure(SourceLocation where) const;

  std::string path_;
  PackDirectory directory_;
  zip* archive_ = nullptr;
  Reading reading_;
  std::list<Source> sources_;
};

}  // namespace tarvo::toolkit
