#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarvo::toolkit {

/// So many entries of a stack are looked at, those of inlined functions among them: what matters is
/// near the crash, and a recursion has any depth.
inline constexpr std::size_t kMostStackEntries = 40;

/// A function of a crashed thread's stack. Texts are as the crash log has them.
struct StackEntry {
  std::string function{};
  std::string module{};  ///< of an inlined function that of the code it is part of
  std::string build{};   ///< of the module; empty where it is not known
  std::string sourceFile{};
  std::uint64_t sourceLine = 0;
  std::optional<std::uint64_t> moduleOffset{};  ///< of the address, from the module's start
  /// How far behind its symbol the address lies, where only a symbol table knew the function.
  std::optional<std::uint64_t> symbolOffset{};
  bool isInlined = false;  ///< into the next entry
  std::string key{};       ///< see SetKeys
  bool isNamed = false;    ///< whether `key` is of the function's name
  friend bool operator==(const StackEntry&, const StackEntry&) = default;
};

/// The crashed thread from the frame on that crashed, innermost first, inlined functions as entries
/// of their own.
using CrashStack = std::vector<StackEntry>;

}  // namespace tarvo::toolkit
