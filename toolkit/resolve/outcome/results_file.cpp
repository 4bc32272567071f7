#include "toolkit/resolve/outcome/results_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "tarvo/format.h"

namespace tarvo::toolkit {
namespace {

constexpr SourceFile kResultsFile{"command/resolve"};
constexpr std::size_t kCopyBytes = 1 << 18;
constexpr std::size_t kMostWaitingBytes = 8 << 20;

Error NotWritten(const Url& file, int reason) {
  return Error::File(kResultsFile.Here(),
                     Format("Could not write \"@\": @", file, std::strerror(reason)), file);
}

/// A file without a name in `directory`, or -1.
int OpenNameless(std::string directory) {
  const int descriptor = open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (descriptor >= 0 || (errno != EOPNOTSUPP && errno != EISDIR)) return descriptor;
  directory += "/.tarvo-results-XXXXXX";  // some network file systems have none
  const int named = mkostemp(directory.data(), O_CLOEXEC);
  if (named >= 0) unlink(directory.c_str());
  return named;
}

}  // namespace

Result<ResultsFile> ResultsFile::Make(FileService& files, const Url& file, std::size_t count) {
  Result<Ref<OutputFile>> output = files.Create(file);
  if (!output) return output.GetError();
  return ResultsFile(file, std::move(*output), count);
}

Result<ResultsFile> ResultsFile::MakeKept(FileService& files, const Url& file, std::size_t count) {
  Result<ResultsFile> made = Make(files, file, count);
  if (!made) return made;
  std::string kept = file.SystemPath().ToStdString() + std::string(kPartialInfix) + "XXXXXX";
  const int descriptor = mkostemp(kept.data(), O_CLOEXEC);
  if (descriptor < 0) return NotWritten(file, errno);
  made->aside_ = File(fdopen(descriptor, "w+b"));
  if (!made->aside_) return NotWritten(file, errno);
  made->kept_ = std::move(kept);
  return made;
}

void ResultsFile::Add(std::size_t report, std::string line) {
  Lock lock(*mutex_);
  if (!written_) return;
  const auto taken = Take(lock, places_.empty() ? report : places_[report], std::move(line));
  if (!taken) written_ = taken;
}

Result<void> ResultsFile::Take(Lock& lock, std::size_t place, std::string line) {
  if (!kept_.empty()) {
    if (auto aside = PutAside(place, line); !aside) return aside;
    return std::fflush(aside_.get()) == 0 ? Result<void>() : NotWritten(file_, errno);
  }
  if (isWriting_ || place != next_) return Wait(place, std::move(line));
  return WriteFrom(lock, line);
}

Result<void> ResultsFile::WriteFrom(Lock& lock, std::string_view line) {
  isWriting_ = true;
  lock.unlock();
  auto written = output_->Write(line);
  lock.lock();
  if (!written) return written;
  ++next_;
  auto waiting = WriteWaiting(lock);
  isWriting_ = !waiting;
  return waiting;
}

Result<void> ResultsFile::WriteWaiting(Lock& lock) {
  for (; next_ < extents_.size(); ++next_) {
    auto early = waiting_.extract(next_);
    const Extent extent = extents_[next_];
    if (early.empty() && extent.size == 0) return {};
    if (!early.empty()) waitingBytes_ -= early.mapped().capacity();
    lock.unlock();
    auto written = early.empty() ? WriteAside(extent) : output_->Write(early.mapped());
    lock.lock();
    if (!written) return written;
  }
  return {};
}

Result<void> ResultsFile::Wait(std::size_t place, std::string line) {
  const std::size_t bytes = line.capacity();
  if (waiting_.emplace(place, std::move(line)).second) waitingBytes_ += bytes;
  if (waitingBytes_ <= kMostWaitingBytes) return {};
  if (!aside_) {
    const std::string directory = file_.Parent().SystemPath().ToStdString();
    const int descriptor = OpenNameless(directory.empty() ? "." : directory);
    if (descriptor < 0) return NotWritten(file_, errno);
    aside_ = File(fdopen(descriptor, "w+b"));
    if (!aside_) return NotWritten(file_, errno);
  }
  for (const auto& [early, text] : waiting_)
    if (auto aside = PutAside(early, text); !aside) return aside;
  waiting_.clear();
  waitingBytes_ = 0;
  return std::fflush(aside_.get()) == 0 ? Result<void>() : NotWritten(file_, errno);
}

Result<void> ResultsFile::PutAside(std::size_t place, std::string_view line) {
  if (std::fwrite(line.data(), 1, line.size(), aside_.get()) != line.size())
    return NotWritten(file_, errno);
  extents_[place] = {asideSize_, line.size()};
  asideSize_ += line.size();
  return {};
}

Result<void> ResultsFile::Commit() {
  Lock lock(*mutex_);
  if (!written_) return written_;
  for (; next_ < extents_.size(); ++next_)
    if (auto written = WriteWaiting(lock); !written) return written;
  if (auto committed = output_->Commit(); !committed) return committed;
  if (!kept_.empty()) unlink(kept_.c_str());
  return {};
}

/// The lines of `aside_` are flushed as soon as they are put there.
Result<void> ResultsFile::WriteAside(const Extent& extent) {
  std::string piece(std::min<std::uint64_t>(extent.size, kCopyBytes), '\0');
  for (std::uint64_t done = 0; done < extent.size;) {
    const std::size_t wanted = std::min<std::uint64_t>(extent.size - done, piece.size());
    const ssize_t count =
        pread(fileno(aside_.get()), piece.data(), wanted, static_cast<off_t>(extent.offset + done));
    if (count <= 0) return NotWritten(file_, count < 0 ? errno : EIO);
    const auto bytes = static_cast<std::size_t>(count);
    if (auto written = output_->Write({piece.data(), bytes}); !written) return written;
    done += bytes;
  }
  return {};
}

}  // namespace tarvo::toolkit
