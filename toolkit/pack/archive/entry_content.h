#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tarvo/result.h"

namespace tarvo::toolkit {

/// What an entry of an archive holds, before it is read: runs of bytes, one after the other, made
/// or taken from a file. So a file of any size goes through in pieces.
struct EntryContent {
  struct Run {
    std::string bytes{};       ///< made; where it is empty, ...
    std::uint64_t offset = 0;  ///< ... `size` bytes of the file from here
    std::uint64_t size = 0;    ///< of `bytes` too
    bool isZeros = false;      ///< `size` zero bytes
  };
  std::string path;  ///< the file; empty where all is made
  std::vector<Run> runs;

  [[nodiscard]] std::uint64_t Size() const noexcept;
  /// Adds a run of made bytes, or of zeros.
  void Append(std::string bytes);
  void AppendZeros(std::uint64_t size);
  void AppendFile(std::uint64_t offset, std::uint64_t size);
};

/// All of the regular file `path`. A file error when it cannot be opened.
Result<EntryContent> WholeFile(const std::string& path);

/// Reads a content from its start to its end.
class ContentReader {
 public:
  explicit ContentReader(const EntryContent& content) : content_(content) {}
  ~ContentReader() { Close(); }
  ContentReader(const ContentReader&) = delete;
  ContentReader& operator=(const ContentReader&) = delete;

  /// Opens the file; false where that fails, with errno set.
  [[nodiscard]] bool Open();
  /// At most `size` bytes: how many; 0 at the end, -1 for an error, with errno set. A file that has
  /// become shorter is an error.
  [[nodiscard]] std::int64_t Read(char* to, std::uint64_t size);
  void Close();

 private:
  const EntryContent& content_;
  int file_ = -1;
  std::size_t run_ = 0;
  std::uint64_t done_ = 0;  ///< of the run
};

}  // namespace tarvo::toolkit
