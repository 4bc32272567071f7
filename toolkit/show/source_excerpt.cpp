#include "toolkit/show/source_excerpt.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>

#include "toolkit/base/checksum.h"
#include "toolkit/base/regular_file.h"
#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

std::string Shown(std::string_view line) {
  constexpr const char* kTab = "    ";
  if (line.ends_with('\r')) line.remove_suffix(1);
  std::string text;
  for (const char c : line.substr(0, kLongestSourceLine)) {
    if (c == '\t') {
      text += kTab;
    } else {
      text += c;
    }
  }
  return SafeText(text);
}

}  // namespace

void SourceReader::Load(std::string_view path) {
  if (path == path_) return;
  path_ = path;
  content_.clear();
  isRead_ = false;
  // The path is a text of the document: a NUL in it would end it early.
  if (path.find('\0') != std::string_view::npos) return;
  const auto opened = OpenRegularFile(path_);
  if (!opened || opened->size > kMaximumSourceBytes) return;
  struct stat file{};
  if (fstat(fileno(opened->file.get()), &file) != 0) return;
  time_ = file.st_mtim.tv_sec;
  content_.resize(opened->size);
  content_.resize(std::fread(content_.data(), 1, content_.size(), opened->file.get()));
  isRead_ = content_.size() == opened->size;
}

std::optional<bool> SourceReader::Matches(std::string_view path, std::string_view checksum) {
  if (!isRead_ || path != path_ || checksum.empty()) return std::nullopt;
  work_ += content_.size();
  return HasChecksum(content_, checksum);
}

std::vector<SourceLine> SourceReader::Excerpt(std::string_view path, std::uint64_t line) {
  std::vector<SourceLine> lines;
  if (path.empty() || line == 0 || work_ >= kMaximumSourceWork) return lines;
  Load(path);
  work_ += content_.size();
  const std::uint64_t first = line - std::min(line - 1, kExcerptContext);
  std::string_view rest = content_;
  std::uint64_t number = 1;
  for (; !rest.empty() && number <= line + kExcerptContext; ++number) {
    const std::string_view text = rest.substr(0, rest.find('\n'));
    if (number >= first) lines.push_back({number, Shown(text)});
    rest.remove_prefix(std::min(rest.size(), text.size() + 1));
  }
  // A file that ends before the line is another one than the program was made from.
  if (number <= line) lines.clear();
  return lines;
}

}  // namespace tarvo::toolkit
