#pragma once

#include <memory>
#include <string>

#include "files/image_range.h"
#include "index/symbol_source.h"
#include "indexer_client/indexer_process.h"
#include "tarvo/result.h"

namespace tarvo::symbolreader {

/// A process that died is started again this often for one file.
inline constexpr int kMostRestarts = 3;
/// Opening the file and each answer may take this many seconds, or the time limit if that is less.
inline constexpr std::int64_t kMostAnswerSeconds = 60;

/// A debug file that a process answers for.
struct IndexerAnswers {
  std::unique_ptr<SymbolSource> source;
  ImageRange image;
};

/// Reads a debug file without an index: each address is asked from a process that has the file
/// open. Slower than an index by some factors, and one thread at a time for a file. An address at
/// which the process dies counts as unknown.
///
/// `bytes` is the file's size. A file error when the program cannot be started, or when it cannot
/// read the file: its own then, or that it ended.
Result<IndexerAnswers> MakeIndexerSource(const std::string& debugFile,
                                         const std::string& architecture,
                                         const IndexerLimits& limits, std::size_t bytes);

}  // namespace tarvo::symbolreader
