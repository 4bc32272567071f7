#pragma once

#include <atomic>
#include <cstdint>

#include "archive/archive_limits.h"
#include "tarvo/result.h"
#include "tarvo/url.h"

namespace tarvo {

/// How far an extraction is, for any thread to read.
struct ExtractionProgress {
  std::atomic<std::uint64_t> done{0};  ///< bytes that were written
  std::atomic<std::uint64_t> all{0};   ///< what the archive's headers say; 0 while not known
};

/// Extracts the whole zip archive `archive`, open as `file`, into the empty directory `directory`.
/// A large archive is extracted by several threads, each on entries of its own, as inflating is
/// what takes the time.
///
/// The archive is untrusted: files, directories and inner links are made, below the directory only
/// (see ExtractionTree); an entry that is anything else, an encrypted, damaged or doubled one, or
/// one above the limits ends the extraction. The file error's text names the archive and the entry;
/// its file is the archive, or `place`, the directory's path for people, where the machine is at
/// fault (SystemFailure). What was made before an error stays.
Result<void> ExtractZip(int file, const Url& archive, int directory, const Url& place,
                        const ArchiveLimits& limits, ExtractionProgress& progress);

}  // namespace tarvo
