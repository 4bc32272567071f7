#include "toolkit/base/build_name.h"

#include <algorithm>
#include <array>

#include "tarvo/string.h"
#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

/// File systems take 255 bytes; behind the build stand suffixes, in front the marks of what is not
/// complete.
constexpr std::size_t kLongestBuildName = 200;
constexpr std::string_view kKeptBySystems = "/\\:*?\"<>|";
constexpr std::array<std::string_view, 4> kDevices = {"CON", "PRN", "AUX", "NUL"};
constexpr std::array<std::string_view, 2> kNumberedDevices = {"COM", "LPT"};

bool IsDevice(std::string_view name) {
  const String plain(name.substr(0, name.find('.')));
  const bool isNumbered = plain.View().size() == 4 && plain.View()[3] >= '0' &&
                          plain.View()[3] <= '9' &&
                          std::ranges::any_of(kNumberedDevices, [&](std::string_view device) {
                            return String(plain.View().substr(0, 3)).EqualsIgnoringCase(device);
                          });
  return isNumbered || std::ranges::any_of(kDevices, [&](std::string_view device) {
           return plain.EqualsIgnoringCase(device);
         });
}

bool EndsBadly(std::string_view name) { return name.ends_with('.') || name.ends_with(' '); }

}  // namespace

bool IsBuildName(std::string_view build) {
  return !build.empty() && build.size() <= kLongestBuildName && SafeText(build) == build &&
         build.find_first_of(kKeptBySystems) == std::string_view::npos && !EndsBadly(build) &&
         !build.starts_with(' ') && !IsDevice(build);
}

std::string ProposedBuildName(std::string_view build) {
  std::string name;
  // What cannot be printed is spelled in several characters from a backslash on.
  for (const char c : SafeText(build).substr(0, kLongestBuildName - 1))
    name += kKeptBySystems.find(c) == std::string_view::npos ? c : '_';
  while (SafeText(name) != name) name.pop_back();
  while (EndsBadly(name)) name.pop_back();
  name.erase(0, std::min(name.find_first_not_of(' '), name.size()));
  if (name.empty()) return "build";
  return IsDevice(name) ? "build-" + name : name;
}

}  // namespace tarvo::toolkit
