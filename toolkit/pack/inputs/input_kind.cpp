#include "toolkit/pack/inputs/input_kind.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>

#include "tarvo/symbol_archive.h"
#include "toolkit/base/regular_file.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

using namespace std::string_view_literals;

constexpr std::string_view kElfMagic =
    "\x7f"
    "ELF";

struct FileFormat {
  std::string_view magic;
  InputKind kind;
  std::string_view name;
};
constexpr std::array kFormats = {
    FileFormat{kElfMagic, InputKind::Elf, ""}, FileFormat{"MZ"sv, InputKind::Pe, ""},
    FileFormat{"Microsoft C/C++ MSF 7.00"sv, InputKind::Pdb, ""},
    // Formats that people may take for what is packed.
    FileFormat{"\xcf\xfa\xed\xfe"sv, InputKind::Other, "a Mach-O file without its dSYM bundle"},
    FileFormat{"\xce\xfa\xed\xfe"sv, InputKind::Other, "a Mach-O file without its dSYM bundle"},
    FileFormat{"\xca\xfe\xba\xbe"sv, InputKind::Other, "a Mach-O file without its dSYM bundle"},
    FileFormat{"!<arch>\n"sv, InputKind::Other, "a static library"},
    FileFormat{"PK\3\4"sv, InputKind::Other, "a zip archive"}};

bool IsSplitPart(const fs::path& path) {
  return path.extension() == ".dwo" || path.extension() == ".dwp";
}

bool IsAppleBundle(const fs::path& directory) {
  const fs::path suffix = directory.extension();
  return suffix == symbol_archive::kBundleSuffix || suffix == symbol_archive::kAppleBundleSuffix;
}

}  // namespace

Result<KnownFile> KindOf(const std::string& path) {
  std::error_code error;
  if (fs::is_directory(path, error)) {
    // A bundle's name, also where "/" stands behind it.
    fs::path plain = fs::path(path).lexically_normal();
    if (!plain.has_filename()) plain = plain.parent_path();
    return KnownFile{IsAppleBundle(plain) ? InputKind::AppleBundle : InputKind::Folder, {}};
  }
  const auto opened = OpenRegularFile(path);
  if (!opened) return opened.GetError();
  std::array<char, 32> bytes{};
  const std::string_view start(bytes.data(),
                               std::fread(bytes.data(), 1, bytes.size(), opened->file.get()));
  const auto format = std::ranges::find_if(
      kFormats, [&](const FileFormat& f) { return start.starts_with(f.magic); });
  if (format == kFormats.end())
    return KnownFile{InputKind::Other,
                     start.empty() ? "an empty file" : "a file of another format"};
  if (format->kind == InputKind::Elf && IsSplitPart(path))
    return KnownFile{InputKind::SplitPart, {}};
  return KnownFile{format->kind, std::string(format->name)};
}

}  // namespace tarvo::toolkit
