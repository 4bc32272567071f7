#include "toolkit/triage/grouping/frame_choice.h"

#include <algorithm>
#include <map>
#include <string_view>

#include "toolkit/triage/grouping/frame_rules.h"
#include "toolkit/triage/grouping/stack_keys.h"

namespace tarvo::toolkit {
namespace {

enum class Glue : bool { LeftOut, Taken };

/// Code that belongs to no module, as after a call through a wild pointer: its caller tells more.
bool IsNowhere(const StackEntry& entry) { return entry.key == kUnknownPlace; }

/// Behind the last entry that raises.
std::size_t BehindRaising(const CrashStack& stack) {
  for (std::size_t i = stack.size(); i-- > 0;)
    if (IsRaising(stack[i])) return i + 1;
  return 0;
}

std::vector<std::size_t> Walk(const CrashStack& stack, std::size_t start, Glue glue) {
  std::vector<std::size_t> chosen;
  for (std::size_t i = start; i < stack.size(); ++i) {
    const StackEntry& entry = stack[i];
    if (IsBelowProgram(entry)) break;
    const bool isSeen =
        std::ranges::any_of(chosen, [&](std::size_t seen) { return stack[seen].key == entry.key; });
    const bool isLeftOut =
        IsOfCrashHandler(entry) || (glue == Glue::LeftOut && (IsGlue(entry) || IsNowhere(entry)));
    if (!isSeen && !isLeftOut) chosen.push_back(i);
    if (IsProgramStart(entry)) break;
  }
  return chosen;
}

}  // namespace

std::vector<std::size_t> ChooseFrames(const CrashStack& stack) {
  const std::size_t start = BehindRaising(stack);
  std::vector<std::size_t> chosen = Walk(stack, start, Glue::LeftOut);
  if (chosen.empty()) chosen = Walk(stack, start, Glue::Taken);
  if (chosen.empty()) chosen = Walk(stack, 0, Glue::Taken);
  if (chosen.empty() && !stack.empty()) chosen.push_back(0);
  return chosen;
}

std::vector<std::size_t> RecursiveFrames(const CrashStack& stack) {
  constexpr std::size_t kLeastTimes = 3;
  std::map<std::string_view, std::vector<std::size_t>> places;
  for (std::size_t i = 0; i < stack.size(); ++i)
    if (!IsGlue(stack[i]) && !IsOfCrashHandler(stack[i])) places[stack[i].key].push_back(i);
  std::vector<std::size_t> frames;
  for (const auto& [key, indices] : places)
    if (indices.size() >= kLeastTimes) frames.push_back(indices[0]);
  return frames;
}

}  // namespace tarvo::toolkit
