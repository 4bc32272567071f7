#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Files that hold parts of a debug file's information (.dwo, .dwp, what dwz has made) and were not
/// there, or were not the right ones, when its index was made. The index remembers them, so that it
/// is made anew when one has come. Of an index that could not be made all are remembered that were
/// looked at: a damaged one may have been the reason.
namespace tarvo::symbolreader {

/// A place where such a file was looked for.
struct MissingFile {
  /// A path, absolute or from the debug file's directory, for the same debug file may stand
  /// elsewhere another time. kPackages: those that PackagesBeside gives.
  std::string place;
  std::uint64_t state = 0;  ///< of what stands there; 0: nothing

  friend auto operator<=>(const MissingFile&, const MissingFile&) = default;
};
inline constexpr std::string_view kPackages{};

/// No index remembers more.
inline constexpr std::size_t kMostMissingFiles = 10'000;

/// Where a package of split debug information (.dwp) of `debugFile` may be.
[[nodiscard]] std::vector<std::string> PackagesBeside(const std::string& debugFile);

/// What stands at `places` now, as they are written in MissingFile.
[[nodiscard]] std::vector<MissingFile> LookAt(std::span<const std::string> places,
                                              const std::string& debugFile);

/// The paths that a place stands for.
[[nodiscard]] std::vector<std::string> PathsOf(const std::string& place,
                                               const std::string& debugFile);

/// The bytes by which files are remembered: for each a varint, the size of its place, the place and
/// a varint, its state.
[[nodiscard]] std::string Encode(const MissingFile& file);
/// Reads at most `count` of them back.
[[nodiscard]] std::vector<MissingFile> DecodeFiles(std::span<const std::uint8_t> bytes,
                                                   std::uint64_t count = kMostMissingFiles);

/// Whether something else stands now at a place where one of `files` was missed.
[[nodiscard]] bool HasOneCome(std::span<const MissingFile> files, const std::string& debugFile);

}  // namespace tarvo::symbolreader
