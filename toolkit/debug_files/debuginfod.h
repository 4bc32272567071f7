#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <string>

#include "tarvo/result.h"

namespace tarvo::toolkit {

/// Debug files from the servers that DEBUGINFOD_URLS names, through elfutils' client library, which
/// is loaded at the first question and keeps what it has downloaded, and what no server has, in its
/// own cache (DEBUGINFOD_CACHE_PATH, else the user's cache directory).
///
/// One download at a time. A server that has let one question go unanswered for kLongestDownload is
/// not asked again by this object.
class Debuginfod {
 public:
  static constexpr std::chrono::seconds kLongestDownload{300};
  /// No object asks more often: a report can name any number of build ids.
  static constexpr int kMostQuestions = 5000;

  /// Called about every quarter second during a download with the bytes so far and in all (0: not
  /// known yet).
  using OnProgress = std::function<void(long done, long all)>;

  /// Whether DEBUGINFOD_URLS is set: without it nothing is asked and nothing loaded.
  [[nodiscard]] static bool IsConfigured();

  /// The debug file of the build id `id`, lower-case hexadecimal; empty where no server has it. An
  /// error that says what went wrong.
  Result<std::string> Find(const std::string& id, const OnProgress& onProgress);

 private:
  std::mutex mutex_;
  bool hasGivenUp_ = false;
  int questions_ = 0;
};

}  // namespace tarvo::toolkit
