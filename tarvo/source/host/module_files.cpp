#include "host/module_files.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "files/application_directories.h"
#include "tarvo/format.h"

namespace tarvo {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kModuleFiles{"tarvo/source/module_files"};

/// Loaded first, so that it watches over the loading of the others.
constexpr std::string_view kFirstModule = "crashhandler.so";

std::vector<fs::path> ModulesIn(const std::string& directory) {
  std::vector<fs::path> files;
  std::error_code error;
  for (auto entry = fs::directory_iterator(directory, error);
       !error && entry != fs::directory_iterator(); entry.increment(error))
    if (entry->path().extension() == ".so") files.push_back(entry->path());
  std::ranges::sort(files, {}, [](const fs::path& file) {
    return std::pair(file.filename() != kFirstModule, file.filename().string());
  });
  return files;
}

}  // namespace

Result<std::vector<std::string>> DefaultModuleFiles(const std::vector<std::string>& directories) {
  std::string tried;
  for (const std::string& directory : directories) {
    const std::vector<fs::path> files = ModulesIn(directory);
    if (!files.empty()) return std::vector<std::string>(files.begin(), files.end());
    tried += (tried.empty() ? "" : " and ") + directory;
  }
  return Error::IllegalState(kModuleFiles.Here(),
                             Format("No module (*.so) was found; looked in @.", tried));
}

std::vector<std::string> DefaultModuleDirectories() {
  return {(fs::path(DirectoryOfProgram()).parent_path() / "modules").string(),
          (fs::path(DirectoryOfHostLibrary()) / "tarvo" / "modules").string()};
}

}  // namespace tarvo
