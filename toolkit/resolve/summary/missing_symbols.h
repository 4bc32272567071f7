#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tarvo/data_dictionary.h"
#include "toolkit/resolve/summary/lacks.h"
#include "toolkit/store/archive_cache.h"

/// The list of symbols that are to be asked for: who gets it has seen neither reports nor archives.
namespace tarvo::toolkit {

using MissingModule = std::pair<Lacks::Lack, Lacks::Count>;

/// What is missing of one build on one platform.
struct MissingBuild {
  String platform;  ///< empty where it is not known
  String build;     ///< empty where the reports state none
  std::uint64_t reports = 0;
  std::uint64_t frames = 0;
  std::string archive{};  ///< the file name that it would have; empty without a build
  std::string found{};    ///< for people: what there is instead; empty without a build
  std::vector<MissingModule> modules{};
};

/// Sorted by the number of reports, then of frames, largest first; behind all builds what has none.
struct MissingSymbols {
  std::vector<MissingBuild> builds;
  /// Whom nobody can be asked for: modules of the system and of the crash handler, and those that
  /// reports do not list.
  std::vector<MissingModule> others;
};

[[nodiscard]] MissingSymbols FindMissing(const Lacks& lacks, ArchiveCache& archives);

/// For people: as long as a mail may be.
[[nodiscard]] std::string MissingText(const MissingSymbols& missing);

/// For programs: a row for each module, at most kMostMissingRows.
inline constexpr std::size_t kMostMissingRows = 1000;
[[nodiscard]] DataArray MissingDocument(const MissingSymbols& missing);

}  // namespace tarvo::toolkit
