#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "toolkit/cluster/shard.h"
#include "toolkit/resolve/outcome/results_file.h"
#include "toolkit/resolve/summary/lacks.h"

namespace tarvo::toolkit {

/// What is left to do of a shard, whose results go to a file.
///
/// While it is worked on, each line is kept in FILE.partial-XXXXXX as soon as it is there, so that
/// a task that was killed is taken up by the next one where it stood; FILE itself appears in one
/// step with all lines and ends the others' lives. Nothing is locked: a task that was thought
/// dead and works on is in nobody's way, for both come to the same lines.
struct ShardWork {
  std::vector<Report> reports;  ///< to be resolved
  ResultsFile results;          ///< holds the lines of earlier tasks, and takes those of `reports`
  std::vector<Url> partial;     ///< of earlier tasks; of no use once `results` is committed
};

/// How far a shard is.
struct TakenUpShard {
  std::size_t reports = 0;          ///< that have a line from an earlier task
  Lacks lacks{};                    ///< what these lack, by their outcomes
  std::optional<ShardWork> work{};  ///< nothing where the shard ran
};

/// Looks at what earlier tasks have left of the shard. It ran where `file` has a line for each of
/// its reports, as they are listed. A line counts when its report's hash is the list's, so results
/// of another list are not mistaken for this one's. A file error when nothing can be written beside
/// `file`.
[[nodiscard]] Result<TakenUpShard> TakeUpShard(FileService& files,
                                               const std::vector<ListedReport>& list,
                                               const Shard& shard, const Url& file);

/// `file` appears, and what earlier tasks have left goes.
[[nodiscard]] Result<void> FinishShard(ShardWork& work);

}  // namespace tarvo::toolkit
