#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tarvo::toolkit {

struct TriageOptions {
  std::vector<std::string> paths{};  ///< crash logs, directories of them, files of results
  std::string database{};            ///< its file; empty: what is read is not kept
  std::size_t threads = 1;
  /// Called now and then with the number of logs read so far.
  std::function<void(std::size_t done)> onProgress = [](std::size_t) {};
};

struct TableOptions {
  std::size_t top = 20;                ///< so many groups are listed; 0: all
  std::optional<std::size_t> width{};  ///< columns; without it nothing is shortened
};

}  // namespace tarvo::toolkit
