#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "toolkit/triage/model/crash_stack.h"

namespace tarvo::toolkit {

/// Texts, each kept once: the stacks of ten thousand crashes are made of a few thousand names.
class TextPool {
 public:
  using Place = std::uint32_t;

  Place Add(std::string_view text);
  [[nodiscard]] const std::string& operator[](Place place) const { return texts_[place]; }
  [[nodiscard]] std::size_t Size() const { return texts_.size(); }

 private:
  std::deque<std::string> texts_{};
  std::unordered_map<std::string_view, Place> places_{};
};

/// A StackEntry whose texts are in a pool.
struct CompactEntry {
  TextPool::Place function, module, build, sourceFile, key;
  std::uint64_t sourceLine;
  std::optional<std::uint64_t> moduleOffset, symbolOffset;
  bool isInlined, isNamed;
};

[[nodiscard]] std::vector<CompactEntry> Compact(const CrashStack& stack, TextPool& pool);

}  // namespace tarvo::toolkit
