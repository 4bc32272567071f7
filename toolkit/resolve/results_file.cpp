#include "toolkit/resolve/results_file.h"

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

Result<ResultsFile> ResultsFile::Make(const Url& file, std::size_t count) {
  const std::string directory = file.Parent().SystemPath().ToStdString();
  const int descriptor = OpenNameless(directory.empty() ? "." : directory);
  if (descriptor < 0) return NotWritten(file, errno);
  File lines(fdopen(descriptor, "w+b"));
  if (!lines) return NotWritten(file, errno);
  return ResultsFile(file, std::move(lines), {}, count);
}

Result<ResultsFile> ResultsFile::MakeKept(const Url& file, std::size_t count) {
  std::string kept = file.SystemPath().ToStdString() + std::string(kPartialInfix) + "XXXXXX";
  const int descriptor = mkostemp(kept.data(), O_CLOEXEC);
  if (descriptor < 0) return NotWritten(file, errno);
  File lines(fdopen(descriptor, "w+b"));
  if (!lines) return NotWritten(file, errno);
  return ResultsFile(file, std::move(lines), std::move(kept), count);
}

ResultsFile::ResultsFile(Url file, File lines, std::string kept, std::size_t count)
    : file_(std::move(file)), lines_(std::move(lines)), kept_(std::move(kept)), extents_(count) {}

void ResultsFile::Add(std::size_t report, std::string_view line) {
  const std::scoped_lock lock(*mutex_);
  if (!written_) return;
  if (std::fwrite(line.data(), 1, line.size(), lines_.get()) != line.size() ||
      (!kept_.empty() && std::fflush(lines_.get()) != 0)) {
    written_ = NotWritten(file_, errno);
    return;
  }
  extents_[places_.empty() ? report : places_[report]] = {size_, line.size()};
  size_ += line.size();
}

Result<void> ResultsFile::Commit(FileService& files) {
  if (!written_) return written_;
  if (std::fflush(lines_.get()) != 0) return NotWritten(file_, errno);
  const Result<Ref<OutputFile>> output = files.Create(file_);
  if (!output) return output.GetError();
  Extent run;  // lines that follow each other in both files
  for (const Extent& next : extents_) {
    if (next.size == 0) continue;
    if (next.offset == run.offset + run.size) {
      run.size += next.size;
      continue;
    }
    if (auto copied = Copy(run, **output); !copied) return copied;
    run = next;
  }
  if (auto copied = Copy(run, **output); !copied) return copied;
  if (auto committed = (*output)->Commit(); !committed) return committed;
  if (!kept_.empty()) unlink(kept_.c_str());
  return {};
}

Result<void> ResultsFile::Copy(const Extent& extent, OutputFile& to) {
  std::string piece(std::min<std::uint64_t>(extent.size, kCopyBytes), '\0');
  for (std::uint64_t done = 0; done < extent.size;) {
    const std::size_t wanted = std::min<std::uint64_t>(extent.size - done, piece.size());
    const ssize_t count =
        pread(fileno(lines_.get()), piece.data(), wanted, static_cast<off_t>(extent.offset + done));
    if (count <= 0) return NotWritten(file_, count < 0 ? errno : EIO);
    const auto bytes = static_cast<std::size_t>(count);
    if (auto written = to.Write({piece.data(), bytes}); !written) return written;
    done += bytes;
  }
  return {};
}

}  // namespace tarvo::toolkit
