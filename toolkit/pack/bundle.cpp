#include "toolkit/pack/bundle.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>

#include "tarvo/format.h"
#include "tarvo/symbol_archive.h"
#include "toolkit/base/regular_file.h"
#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

using namespace std::string_view_literals;

constexpr SourceFile kBundle{"command/pack/bundle"};
constexpr std::string_view kExpected = "an ELF program or library or a dSYM bundle";
constexpr std::string_view kElfMagic =
    "\x7f"
    "ELF";

/// Formats that people may take for what is packed, by their first bytes.
struct FileFormat {
  std::string_view magic;
  std::string_view name;
};
constexpr std::array kOtherFormats = {
    FileFormat{"\xcf\xfa\xed\xfe"sv, "a Mach-O file without its dSYM bundle"},
    FileFormat{"\xce\xfa\xed\xfe"sv, "a Mach-O file without its dSYM bundle"},
    FileFormat{"\xca\xfe\xba\xbe"sv, "a Mach-O file without its dSYM bundle"},
    FileFormat{"MZ"sv, "a Windows program or library"},
    FileFormat{"Microsoft C/C++ MSF 7.00"sv, "a PDB"},
    FileFormat{"!<arch>\n"sv, "a static library"},
    FileFormat{"PK\3\4"sv, "a zip archive"}};

std::string FormatName(std::string_view start) {
  const auto format = std::ranges::find_if(
      kOtherFormats, [&](const FileFormat& f) { return start.starts_with(f.magic); });
  if (format != kOtherFormats.end()) return std::string(format->name);
  return start.empty() ? "an empty file" : "a file of another format";
}

bool IsAppleBundle(const fs::path& directory) {
  const fs::path suffix = directory.extension();
  return suffix == symbol_archive::kBundleSuffix || suffix == symbol_archive::kAppleBundleSuffix;
}

Result<Bundle> FindFileBundle(const std::string& path,
                              const std::vector<std::string>& debugDirectories) {
  const auto opened = OpenRegularFile(path);
  if (!opened) return opened.GetError();
  std::array<char, 32> bytes{};
  const std::string_view start(bytes.data(),
                               std::fread(bytes.data(), 1, bytes.size(), opened->file.get()));
  if (start.starts_with(kElfMagic)) return FindElfBundle(path, debugDirectories);
  return PackError(kBundle.Here(), path, FormatName(start), kExpected);
}

}  // namespace

Error PackError(SourceLocation where, const std::string& path, const std::string& found,
                std::string_view expected) {
  return Error::File(
      where, Format("Cannot pack \"@\": found @, expected @.", SafeText(path), found, expected),
      Url::FromSystemPath(path));
}

Result<Bundle> FindBundle(const std::string& path,
                          const std::vector<std::string>& debugDirectories) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (status.type() == fs::file_type::not_found)
    return PackError(kBundle.Here(), path, "nothing there", kExpected);
  if (!fs::is_directory(status)) return FindFileBundle(path, debugDirectories);
  // A bundle's name, also where "/" stands behind it.
  fs::path plain = fs::path(path).lexically_normal();
  if (!plain.has_filename()) plain = plain.parent_path();
  if (!IsAppleBundle(plain))
    return PackError(kBundle.Here(), path, "a directory not named *.dSYM", kExpected);
  return FindAppleBundle(plain.native());
}

}  // namespace tarvo::toolkit
