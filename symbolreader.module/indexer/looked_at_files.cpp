#include "indexer/looked_at_files.h"

#include <unistd.h>

#include "indexer_client/indexer_protocol.h"

namespace tarvo::symbolreader {

void LookedAtFiles::Add(std::span<const MissingFile> files) {
  const std::scoped_lock lock(mutex_);
  std::string bytes;
  for (const MissingFile& file : files)
    if (places_.size() < kMostMissingFiles && places_.insert(file.place).second)
      bytes += Encode(file);
  if (bytes.empty()) return;
  const auto place = static_cast<off_t>(sizeof(IndexProgress) + size_);
  size_ += bytes.size();
  [[maybe_unused]] const auto written = pwrite(STDOUT_FILENO, bytes.data(), bytes.size(), place);
}

}  // namespace tarvo::symbolreader
