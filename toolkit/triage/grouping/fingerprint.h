#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "toolkit/triage/model/crash_stack.h"

namespace tarvo::toolkit {

/// Counts on with every change of a rule that gives a crash another id. It is part of no id, so
/// that those that the change leaves alone stay.
inline constexpr int kFingerprintVersion = 1;

/// Which crashes are alike. An id is the first 16 digits of the SHA-256, in lower-case hexadecimal,
/// of the text "group" or "variant", the class and the keys, each followed by a zero byte; so it is
/// the same on all machines and collisions cannot be made.
struct Fingerprint {
  std::string group{};                  ///< the id of class and first frame
  std::string variant{};                ///< the id of class and first three frames
  std::string signature{};              ///< what the group is called: the first frame's key
  std::vector<std::string> frames{};    ///< the keys of the variant
  std::vector<std::string> sequence{};  ///< the keys of all frames that were chosen
  /// The index in the stack of the entry that the group is named after; 0 without any.
  std::size_t culprit = 0;
};

/// The fingerprint of a stack whose keys are set.
///
/// Where no symbols were there for the first frame, its address is no name: one place in the code
/// is many bugs (a library's check that fails), and many places are one. Then the group has all
/// frames down to the first that has a name, at least three and at most fifteen.
[[nodiscard]] Fingerprint MakeFingerprint(const CrashStack& stack, std::string_view crashClass);

}  // namespace tarvo::toolkit
