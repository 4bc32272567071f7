#pragma once

#include <atomic>
#include <cstdint>

namespace tarvo::symbolreader {

/// Keeps at the start of standard output how far the index is (indexer_protocol.h): the module that
/// started this program reads it there. Nothing depends on that: where standard output is no file,
/// nobody is told. Any thread.
class ProgressReport {
 public:
  explicit ProgressReport(std::uint64_t all) : all_(all) { Write(0); }

  void Add(std::uint64_t bytes);

 private:
  void Write(std::uint64_t done) const;

  const std::uint64_t all_;
  std::atomic<std::uint64_t> done_{0};
};

}  // namespace tarvo::symbolreader
