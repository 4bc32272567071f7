#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tarvo/result.h"

namespace tarvo::toolkit {

/// Symbols for one processor.
struct SymbolSlice {
  std::string architecture;  ///< LLVM's name, "x86_64" or "aarch64"
  std::string id;  ///< build id, UUID, or a PDB's signature and age, as lower-case hexadecimal;
                   ///< empty where the file has none

  friend bool operator==(const SymbolSlice&, const SymbolSlice&) = default;
};

/// What a bundle of an archive is for.
struct ManifestEntry {
  std::string bundle;    ///< its name in the archive: "application.app.dsym"
  std::string module;    ///< the file name of the program or library
  std::string platform;  ///< "linux", "macos", "windows"; empty where that is not known
  bool isExecutable = false;
  std::vector<SymbolSlice> slices;
  /// Whether this program was told to be the one that look-ups by no other name than
  /// "application.app" mean.
  bool isApplication = false;

  friend bool operator==(const ManifestEntry&, const ManifestEntry&) = default;
};

/// The bundles of an archive, as the entry symbol_archive::kManifestName tells them:
///
///     {"Version": 1, "Bundles": [{"Bundle": "application.app.dsym", "Module": "scene",
///       "Platform": "linux", "Executable": true, "Application": true,
///       "Symbols": [{"Architecture": "x86_64", "Id": "4f2a…"}]}]}
///
/// "Application" stands only where it is true.
using Manifest = std::vector<ManifestEntry>;

/// Larger ones are refused.
inline constexpr std::uint64_t kMaximumManifestBytes = std::uint64_t{64} << 20;

/// Reads a manifest. Keys that are not known and entries without a bundle are passed over. An
/// illegal-argument error when the text is no JSON object.
Result<Manifest> ReadManifest(std::string_view json);

/// The text of a manifest, the same for the same entries.
[[nodiscard]] std::string WriteManifest(const Manifest& manifest);

/// The manifest in the directory of an unpacked archive; empty where there is none that can be
/// read.
[[nodiscard]] Manifest ManifestIn(const std::string& directory);

}  // namespace tarvo::toolkit
