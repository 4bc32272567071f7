#include "toolkit/triage/reading/log_source.h"

#include <cstdlib>
#include <memory>

#include "tarvo/format.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/document/crash_document.h"

namespace tarvo::toolkit {
namespace {

constexpr SourceFile kLogSource{"command/triage/log_source"};

/// Portions: enough work for some threads, little to hold.
constexpr std::size_t kPortionLogs = 256;
constexpr std::size_t kPortionBytes = std::size_t{16} << 20;

/// Reads on to the next line end or the end of the file.
void PassOverLine(std::FILE* file) {
  for (int c = getc_unlocked(file); c != '\n' && c != EOF;) c = getc_unlocked(file);
}

}  // namespace

std::vector<PendingLog> LogSource::TakePortion(std::vector<SkippedLog>& skipped) {
  std::vector<PendingLog> portion;
  bytes_ = 0;
  while (portion.size() < kPortionLogs && bytes_ < kPortionBytes) {
    if (results_ != nullptr) {
      TakeLines(portion, skipped);
      continue;
    }
    if (next_ == files_.size()) break;
    const LogFile& file = files_[next_];
    if (!file.hasResults) {
      portion.push_back({.path = file.path});
      ++next_;
      continue;
    }
    auto opened = OpenRegularFile(file.path);
    if (!opened) skipped.push_back({file.path, opened.GetError().Text().ToStdString()});
    if (!opened) ++next_;
    if (opened) results_ = std::move(opened->file);
  }
  return portion;
}

void LogSource::TakeLines(std::vector<PendingLog>& portion, std::vector<SkippedLog>& skipped) {
  while (results_ != nullptr && portion.size() < kPortionLogs && bytes_ < kPortionBytes)
    NextLine(portion, skipped);
}

void LogSource::CloseResults() {
  results_.reset();
  line_ = 0;
  ++next_;
}

void LogSource::NextLine(std::vector<PendingLog>& portion, std::vector<SkippedLog>& skipped) {
  std::string line;
  const std::string path = files_[next_].path + ":" + std::to_string(++line_);
  for (int c = getc_unlocked(results_.get()); c != '\n'; c = getc_unlocked(results_.get())) {
    if (c == EOF) {
      if (std::ferror(results_.get()) != 0)
        skipped.push_back({files_[next_].path, "It could not be read to its end."});
      CloseResults();
      break;
    }
    if (line.size() == kMaximumDocumentBytes) {
      PassOverLine(results_.get());
      skipped.push_back({path, "The line is too long for a crash log."});
      return;
    }
    line += static_cast<char>(c);
  }
  if (line.find_first_not_of(" \t\r") == std::string::npos) return;
  bytes_ += line.size();
  portion.push_back({.path = path, .isLine = true, .line = std::move(line)});
}

Result<std::string> ReadLog(const std::string& path) {
  const auto opened = OpenRegularFile(path);
  if (!opened) return opened.GetError();
  if (opened->size > kMaximumDocumentBytes)
    return Error::IllegalArgument(
        kLogSource.Here(), Format("\"@\": found @ bytes, expected at most @.", SafeText(path),
                                  opened->size, kMaximumDocumentBytes));
  std::string text(opened->size, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), opened->file.get()));
  if (std::ferror(opened->file.get()) != 0)
    return Error::IllegalState(kLogSource.Here(),
                               Format("\"@\": it could not be read.", SafeText(path)));
  return text;
}

}  // namespace tarvo::toolkit
