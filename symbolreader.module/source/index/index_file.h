#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "index/missing_files.h"
#include "index/symbol_source.h"
#include "tarvo/result.h"

namespace tarvo::symbolreader {

enum class IndexState { Usable, Missing, Damaged, Outdated };

/// An index as it was found. `source` is there when it is usable.
struct FoundIndex {
  IndexState state = IndexState::Missing;
  std::unique_ptr<SymbolSource> source{};
  /// First and last address + 1 of the image, where the index tells; else 0.
  std::uint64_t imageStart = 0;
  std::uint64_t imageEnd = 0;
  /// When one of these comes, a new index may tell more, or can be made at all.
  std::vector<MissingFile> missing{};
};

/// Maps the index at `path`, made for `key`, of the debug file at `debugFile`. Outdated is one of
/// which a file that was missed has come. Damaged is every file whose size, trailer, key or
/// checksum is not as it should be; all bytes are read for that once, so that no look-up meets a
/// broken one later. Look-ups neither lock nor change anything.
FoundIndex OpenIndex(const std::string& path, const std::string& key, const std::string& debugFile);

}  // namespace tarvo::symbolreader
