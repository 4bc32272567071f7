#include "files/bundle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <vector>

#include "source.h"
#include "tarvo/format.h"

namespace tarvo::symbolreader {
namespace {

namespace fs = std::filesystem;

using namespace std::string_view_literals;

constexpr std::string_view kDwarfDirectory = "Contents/Resources/DWARF";

/// First bytes of the formats: ELF, Mach-O (both orders and word sizes, universal with 32- and
/// 64-bit offsets), PE, PDB.
constexpr std::array kMagics = {
    "\x7f"
    "ELF"sv,
    "\xcf\xfa\xed\xfe"sv,
    "\xce\xfa\xed\xfe"sv,
    "\xfe\xed\xfa\xcf"sv,
    "\xfe\xed\xfa\xce"sv,
    "\xca\xfe\xba\xbe"sv,
    "\xca\xfe\xba\xbf"sv,
    "MZ"sv,
    "Microsoft C/C++ MSF 7.00\r\n"sv,
};

bool IsDebugFile(const fs::path& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return false;
  struct stat status{};
  std::array<char, 32> bytes{};
  const bool isFile = fstat(file, &status) == 0 && S_ISREG(status.st_mode);
  const ssize_t size = isFile ? read(file, bytes.data(), bytes.size()) : 0;
  close(file);
  const std::string_view start(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  return std::ranges::any_of(kMagics,
                             [&](std::string_view magic) { return start.starts_with(magic); });
}

bool HasSuffix(const fs::path& path, std::string_view suffix) {
  return String(path.extension().native()).EqualsIgnoringCase(suffix);
}

std::vector<fs::path> DebugFilesIn(const fs::path& directory) {
  std::vector<fs::path> files;
  std::error_code error;
  std::size_t seen = 0;
  for (auto entry = fs::directory_iterator(directory, error);
       !error && entry != fs::directory_iterator() && seen < kMostBundleEntries;
       entry.increment(error), ++seen)
    if (IsDebugFile(entry->path())) files.push_back(entry->path());
  std::ranges::sort(files);
  // A PDB beside its PE file is found from there.
  std::erase_if(files, [&, all = files](const fs::path& file) {
    return HasSuffix(file, ".pdb") && std::ranges::any_of(all, [&](const fs::path& other) {
             return other != file && other.stem() == file.stem();
           });
  });
  return files;
}

Error BundleError(SourceLocation where, const fs::path& bundle, const std::string& found,
                  std::string_view expected) {
  return Error::File(where,
                     Format("The symbol bundle @ cannot be read: found @, expected @.",
                            bundle.native(), found, expected),
                     Url::FromSystemPath(bundle.native()));
}

/// The file named like the bundle, which has a suffix of its own and mostly one of the module.
const fs::path* NamedLike(const fs::path& bundle, const std::vector<fs::path>& files) {
  fs::path name = bundle.filename().stem();
  for (;; name = name.stem()) {
    const auto file =
        std::ranges::find(files, name, [](const fs::path& f) { return f.filename(); });
    if (file != files.end()) return &*file;
    if (!name.has_extension()) return nullptr;
  }
}

std::string List(const std::vector<fs::path>& files) {
  constexpr std::size_t kMostNamed = 5;
  std::string text = std::to_string(files.size()) + " debug files";
  for (std::size_t i = 0; i < std::min(files.size(), kMostNamed); ++i)
    text += (i == 0 ? " (" : ", ") + files[i].filename().native();
  return text + (files.size() > kMostNamed ? ", …)" : ")");
}

}  // namespace

Result<std::string> FindDebugFile(const std::string& bundle) {
  fs::path path = bundle;
  if (!path.has_filename()) path = path.parent_path();
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (!fs::exists(status))
    return BundleError(kSource.Here(), path, "nothing", "a file or directory");
  if (!fs::is_directory(status)) return path.native();
  const fs::path inside = path / kDwarfDirectory;
  const auto files = DebugFilesIn(fs::is_directory(inside, error) ? inside : path);
  if (files.empty())
    return BundleError(kSource.Here(), path, "no debug file", "Mach-O, ELF, PE or PDB");
  if (const fs::path* file = NamedLike(path, files)) return file->native();
  if (files.size() == 1) return files.front().native();
  return BundleError(kSource.Here(), path, List(files), "one, or one named like the bundle");
}

}  // namespace tarvo::symbolreader
