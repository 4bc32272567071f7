#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "files/image_range.h"
#include "index/index_format.h"
#include "index/missing_files.h"
#include "indexer/writing/part_builder.h"
#include "tarvo/result.h"

namespace tarvo::symbolreader {

/// Writes an index file part by part. Parts are numbered from 0 on and come in any order, from any
/// thread; they are written in the order of their numbers, so that the same debug file gives the
/// same bytes whichever thread is done first. A part that comes early waits in memory.
class IndexWriter {
 public:
  IndexWriter();
  ~IndexWriter();
  IndexWriter(const IndexWriter&) = delete;
  IndexWriter& operator=(const IndexWriter&) = delete;

  /// Makes the file at `path`, which must not be there. A file error when that fails.
  Result<void> Create(const std::string& path);

  void Add(std::size_t number, Part part);

  /// Notes where the image lies, for a file that does not tell at once.
  void SetImage(const ImageRange& image) { image_ = image; }

  /// Notes which files were missed, as an index made with them would tell more.
  void SetMissing(std::set<MissingFile> files) { missing_ = std::move(files); }

  /// Writes what is left, with `threads` threads that demangle, and the trailer for `key`. All
  /// parts from 0 on have come. A file error when a write failed, an illegal-state error when
  /// nothing is known of any address.
  Result<void> Finish(const std::string& key, unsigned threads);

 private:
  class Strings;

  void Commit(const Part& part);
  void Write(const void* bytes, std::size_t size);
  void Align();
  void WriteBlocks();
  void WriteStrings(unsigned threads);
  void WriteMissing();

  std::mutex mutex_;
  std::vector<std::unique_ptr<Part>> waiting_;  ///< from number next_ on, null where not come yet
  std::size_t next_ = 0;

  ImageRange image_;
  std::set<MissingFile> missing_;
  std::string path_;
  std::FILE* file_ = nullptr;
  std::uint64_t size_ = 0;  ///< of what was written
  bool hasFailed_ = false;
  std::vector<IndexBlock> blocks_;
  std::unique_ptr<Strings> strings_;
};

}  // namespace tarvo::symbolreader
