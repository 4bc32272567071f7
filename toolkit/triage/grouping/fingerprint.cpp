#include "toolkit/triage/grouping/fingerprint.h"

#include <algorithm>
#include <span>

#include "toolkit/base/sha256.h"
#include "toolkit/triage/grouping/crash_class.h"
#include "toolkit/triage/grouping/frame_choice.h"

namespace tarvo::toolkit {
namespace {

constexpr std::size_t kVariantFrames = 3;
constexpr std::size_t kLeastUnnamed = 3;
constexpr std::size_t kMostUnnamed = 15;
constexpr std::size_t kIdDigits = 16;
constexpr std::string_view kNoStack = "(no stack)";

std::string MakeId(std::string_view kind, std::string_view crashClass,
                   std::span<const std::string> keys) {
  constexpr std::string_view kEnd("\0", 1);
  Sha256 hash;
  for (const std::string_view text : {kind, crashClass}) {
    hash.Add(text);
    hash.Add(kEnd);
  }
  for (const std::string& key : keys) {
    hash.Add(key);
    hash.Add(kEnd);
  }
  return hash.TakeHexadecimal().substr(0, kIdDigits);
}

std::vector<std::size_t> FramesOf(const CrashStack& stack, std::string_view crashClass) {
  if (crashClass == kStackOverflow) {
    std::vector<std::size_t> recursive = RecursiveFrames(stack);
    if (!recursive.empty()) return recursive;
  }
  return ChooseFrames(stack);
}

/// How many of the frames make the group.
std::size_t GroupFrames(const CrashStack& stack, std::span<const std::size_t> frames) {
  if (frames.empty() || stack[frames[0]].isNamed) return std::min<std::size_t>(frames.size(), 1);
  const auto named =
      std::ranges::find_if(frames, [&](std::size_t frame) { return stack[frame].isNamed; });
  const auto withNamed =
      static_cast<std::size_t>(named - frames.begin()) + (named == frames.end() ? 0 : 1);
  return std::min(frames.size(), std::clamp(withNamed, kLeastUnnamed, kMostUnnamed));
}

}  // namespace

Fingerprint MakeFingerprint(const CrashStack& stack, std::string_view crashClass) {
  const std::vector<std::size_t> frames = FramesOf(stack, crashClass);
  Fingerprint print;
  for (const std::size_t frame : frames) print.sequence.push_back(stack[frame].key);
  print.signature = frames.empty() ? std::string(kNoStack) : print.sequence[0];
  print.culprit = frames.empty() ? 0 : frames[0];
  const std::size_t groupFrames = GroupFrames(stack, frames);
  const std::size_t variantFrames = std::min(frames.size(), std::max(groupFrames, kVariantFrames));
  const std::span keys(print.sequence);
  print.group = MakeId("group", crashClass, keys.first(groupFrames));
  print.variant = MakeId("variant", crashClass, keys.first(variantFrames));
  print.frames.assign(print.sequence.begin(),
                      print.sequence.begin() + static_cast<std::ptrdiff_t>(variantFrames));
  return print;
}

}  // namespace tarvo::toolkit
