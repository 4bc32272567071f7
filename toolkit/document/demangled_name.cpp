#include "toolkit/document/demangled_name.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace tarvo::toolkit {
namespace {

/// Longer names stay mangled.
constexpr std::size_t kLongestMangledName = 4096;
/// Names with more references back into themselves stay mangled: three of them may triple the text,
/// so that a few dozen fill the memory.
constexpr std::size_t kMostReferences = 20;

/// What may follow a mangled name in a report.
constexpr std::string_view kEnds(" +@\0", 4);

/// How many references ("S_", "S1_", "T_", "T0_" and the like) a mangled name may have.
std::size_t CountReferences(std::string_view name) {
  constexpr std::string_view kDigits = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
  std::size_t count = 0;
  for (std::size_t i = name.find_first_of("ST"); i < name.size(); i = name.find_first_of("ST", i)) {
    i = std::min(name.find_first_not_of(kDigits, i), name.size());
    count += i < name.size() && name[i] == '_';
  }
  return count;
}

}  // namespace

std::string Demangled(std::string_view name) {
  if (!name.starts_with("_Z") || name.size() > kLongestMangledName) return std::string(name);
  const std::string mangled(name.substr(0, name.find_first_of(kEnds)));
  if (CountReferences(mangled) > kMostReferences) return std::string(name);
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> text(
      abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, &status), &std::free);
  return (text ? text.get() : mangled) + std::string(name.substr(mangled.size()));
}

}  // namespace tarvo::toolkit
