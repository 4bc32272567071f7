#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "index/missing_files.h"

/// The program tarvo-symbol-indexer, which reads debug information for this module: LLVM's readers
/// abort, crash or fill the memory on some broken files, and then it is that process which ends.
namespace tarvo::symbolreader {

/// What one run may take; it sets the limits for itself.
struct IndexerLimits {
  std::int64_t megabytes = 0;  ///< of memory of its own
  std::int64_t seconds = 0;    ///< for one index or one answer

  /// "memory limit 8192 MiB, time limit 600 s"
  [[nodiscard]] std::string Text() const;
};

/// The program's path: beside the module.
[[nodiscard]] std::string IndexerProgram();

/// The descriptors that become a child's standard input, output and error; -1 for /dev/null.
struct StandardStreams {
  int input = -1;
  int output = -1;
  int error = -1;
};

/// Starts the program with `arguments` behind its name, with signals as a new program expects them,
/// whatever this thread blocks. 0, or the error's number.
int StartIndexer(const std::vector<std::string>& arguments, const StandardStreams& streams,
                 pid_t& pid);
/// Waits for the child's end; its status as waitpid has it, or nothing where the host process has
/// collected it elsewhere.
std::optional<int> AwaitIndexer(pid_t pid);

/// One index to be made.
struct IndexTask {
  std::string debugFile;
  std::string architecture;
  std::string key;
  std::string output;
  IndexerLimits limits;
};

/// Why an index was not made, in one line.
struct IndexFailure {
  std::string reason;
  bool isLasting = false;            ///< it would fail again: the file or the limits are at fault
  std::vector<MissingFile> parts{};  ///< of the debug file, that were looked at before
};

/// Told how far the index is, in bytes of debug information, several times a second.
using OnIndexing = std::function<void(std::uint64_t done, std::uint64_t all)>;

/// Makes an index and waits for it. Nothing when it went well; the outcome may also go unseen (see
/// AwaitIndexer), so the caller looks at the output in any case.
std::optional<IndexFailure> RunIndexer(const IndexTask& task, const OnIndexing& onIndexing);

}  // namespace tarvo::symbolreader
