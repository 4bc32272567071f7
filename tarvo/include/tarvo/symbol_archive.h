#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <ranges>
#include <string>
#include <string_view>

#include "tarvo/string.h"

/// How symbols are kept for the resolution of crash reports: for each build one zip archive, in a
/// tree of archives, with one symbol bundle a module in it. Who makes archives and who looks them
/// up share these facts.
///
///     ARCHIVES/B12345_dsym.zip                       in a flat tree
///     ARCHIVES/any name/x345y/builds/B12345_dsym.zip in a hierarchy; "345" is the build's search
///     key
///       application.app.dsym                         the program's bundle
///       libscene.so.1.dsym                           a library's, named as crash reports name it
///       Scripting.dsym/Contents/Resources/DWARF/…    a bundle is a file or a directory
///       windows-x86_64/scene.exe.dsym                what has no name that the look-up asks for
///       tarvo-symbols.json                           which bundle is what; need not be there
namespace tarvo::symbol_archive {

/// What follows the build in the name of its archive.
inline constexpr std::string_view kSuffix = "_dsym.zip";

/// The directory of a hierarchy that the archives stand in.
inline constexpr std::string_view kBuildsDirectory = "builds";

/// What follows the module's name in the name of its bundle.
inline constexpr std::string_view kBundleSuffix = ".dsym";
/// The same as Apple's tools spell it; looked for last.
inline constexpr std::string_view kAppleBundleSuffix = ".dSYM";

/// The entry that tells of each bundle what it is for, in archives of `tarvo pack`.
inline constexpr std::string_view kManifestName = "tarvo-symbols.json";

/// The module names under which the bundles of executables stand, whatever the executable's own
/// name is; only one of the name kKernelName has a bundle of its own.
inline constexpr std::string_view kApplicationName = "application.app";
inline constexpr std::string_view kKernelName = "kernel_app";
inline constexpr std::string_view kKernelApplicationName = "kernel_app.app";

/// The version of the application from which on that is so; before, the name depends on the edition
/// that the program is of.
inline constexpr double kApplicationNameVersion = 15.6;

/// The module name under which the bundle of an application's program stands.
[[nodiscard]] inline std::string_view ProgramName(const String& program, double version) {
  constexpr std::array<std::string_view, 5> kEditions = {"SCHOLAR", "PEBBLE", "TIMBER",
                                                         "HARBOR NODE", "FEATHER"};
  if (version >= kApplicationNameVersion)
    return program == kKernelName ? kKernelApplicationName : kApplicationName;
  const bool isEdition = std::ranges::any_of(
      kEditions, [&](std::string_view word) { return program.ContainsIgnoringCase(word); });
  return isEdition ? "Pallado Pebble.app" : "Pallado.app";
}

/// What the name of a hierarchy's second-level directory must contain to be searched for `build`:
/// the build's digits, less what this rule takes away. From the last character to the first, each
/// character that is no digit is erased together with up to two characters that then stand behind
/// it: "B12345" gives "345", "2024.117" gives "20247".
[[nodiscard]] inline String BuildSearchKey(const String& build) {
  // What stands behind the current character, last character first: erasing there is popping here,
  // so a long build takes linear time.
  constexpr std::size_t kErasedBehind = 2;
  std::string behind;
  for (const char c : std::views::reverse(build.View())) {
    if (c >= '0' && c <= '9') {
      behind += c;
    } else {
      behind.resize(behind.size() - std::min(behind.size(), kErasedBehind));
    }
  }
  std::ranges::reverse(behind);
  return String(behind);
}

}  // namespace tarvo::symbol_archive
