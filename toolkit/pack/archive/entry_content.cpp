#include "toolkit/pack/archive/entry_content.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "toolkit/base/regular_file.h"

namespace tarvo::toolkit {

std::uint64_t EntryContent::Size() const noexcept {
  std::uint64_t size = 0;
  for (const Run& run : runs) size += run.size;
  return size;
}

void EntryContent::Append(std::string bytes) {
  const std::uint64_t size = bytes.size();
  if (size != 0) runs.push_back({.bytes = std::move(bytes), .size = size});
}

void EntryContent::AppendZeros(std::uint64_t size) {
  if (size != 0) runs.push_back({.size = size, .isZeros = true});
}

void EntryContent::AppendFile(std::uint64_t offset, std::uint64_t size) {
  if (size != 0) runs.push_back({.offset = offset, .size = size});
}

Result<EntryContent> WholeFile(const std::string& path) {
  const auto file = OpenRegularFile(path);
  if (!file) return file.GetError();
  EntryContent content{.path = path, .runs = {}};
  content.AppendFile(0, file->size);
  return content;
}

void ContentReader::Close() {
  if (file_ >= 0) close(file_);
  file_ = -1;
}

bool ContentReader::Open() {
  run_ = 0;
  done_ = 0;
  if (content_.path.empty() || file_ >= 0) return true;
  file_ = open(content_.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file_ >= 0) posix_fadvise(file_, 0, 0, POSIX_FADV_SEQUENTIAL);
  return file_ >= 0;
}

std::int64_t ContentReader::Read(char* to, std::uint64_t size) {
  if (run_ == content_.runs.size()) return 0;
  const EntryContent::Run& run = content_.runs[run_];
  auto count = static_cast<ssize_t>(std::min(size, run.size - done_));
  if (run.isZeros) {
    std::memset(to, 0, static_cast<std::size_t>(count));
  } else if (!run.bytes.empty()) {
    std::memcpy(to, run.bytes.data() + done_, static_cast<std::size_t>(count));
  } else {
    count =
        pread(file_, to, static_cast<std::size_t>(count), static_cast<off_t>(run.offset + done_));
    if (count == 0) errno = EIO;
    if (count <= 0) return -1;
  }
  done_ += static_cast<std::uint64_t>(count);
  if (done_ != run.size) return count;
  ++run_;
  done_ = 0;
  return count;
}

}  // namespace tarvo::toolkit
