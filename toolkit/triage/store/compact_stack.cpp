#include "toolkit/triage/store/compact_stack.h"

namespace tarvo::toolkit {

TextPool::Place TextPool::Add(std::string_view text) {
  if (const auto known = places_.find(text); known != places_.end()) return known->second;
  const auto place = static_cast<Place>(texts_.size());
  places_.emplace(texts_.emplace_back(text), place);
  return place;
}

std::vector<CompactEntry> Compact(const CrashStack& stack, TextPool& pool) {
  std::vector<CompactEntry> compact;
  compact.reserve(stack.size());
  for (const StackEntry& entry : stack)
    compact.push_back({.function = pool.Add(entry.function),
                       .module = pool.Add(entry.module),
                       .build = pool.Add(entry.build),
                       .sourceFile = pool.Add(entry.sourceFile),
                       .key = pool.Add(entry.key),
                       .sourceLine = entry.sourceLine,
                       .moduleOffset = entry.moduleOffset,
                       .symbolOffset = entry.symbolOffset,
                       .isInlined = entry.isInlined,
                       .isNamed = entry.isNamed});
  return compact;
}

}  // namespace tarvo::toolkit
