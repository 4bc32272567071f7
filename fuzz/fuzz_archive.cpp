// Unpacks any bytes, as a zip archive and as what gzip or xz has packed: all or nothing, and
// nothing outside of the directory that was asked for.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "archive/packed_file.h"
#include "archive/zip_archive.h"

namespace {

namespace fs = std::filesystem;

/// A folder of this process's own, in memory where the system has such a place.
const fs::path& Folder() {
  static const fs::path folder = [] {
    const fs::path memory = "/dev/shm";
    std::string name =
        ((fs::exists(memory) ? memory : fs::temp_directory_path()) / "tarvo-fuzz-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) std::abort();
    std::atexit([] { fs::remove_all(Folder()); });
    return fs::path(name);
  }();
  return folder;
}

void Extract(const tarvo::Ref<tarvo::ReadArchive>& archive) {
  using tarvo::Url;
  const fs::path directory = Folder() / "inner" / "out";
  if (!archive->Open(Url::FromSystemPath((Folder() / "file").string()))) std::abort();
  const auto extracted = archive->Extract(Url::FromSystemPath(directory.string()));
  if (static_cast<bool>(extracted) != fs::is_directory(directory)) std::abort();
  fs::remove_all(directory);
  if (!fs::is_empty(Folder() / "inner")) std::abort();
  if (std::distance(fs::directory_iterator(Folder()), {}) != 2) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr tarvo::ArchiveLimits kLimits{.bytes = 1 << 20, .entries = 50};
  fs::create_directories(Folder() / "inner");
  std::ofstream(Folder() / "file", std::ios::binary)
      .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  Extract(tarvo::CreateZipArchive(kLimits));
  Extract(tarvo::CreatePackedFile(kLimits));
  return 0;
}
