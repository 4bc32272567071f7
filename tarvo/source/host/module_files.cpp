#include "host/module_files.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <utility>

#include "files/application_directories.h"
#include "tarvo/format.h"

namespace tarvo {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kModuleFiles{"tarvo/source/module_files"};

/// Those that belong to the host library, in the order of their loading: the first one watches over
/// the loading of the others.
constexpr std::array<std::string_view, 2> kKnownModules{"crashhandler.so", "symbolreader.so"};
constexpr std::string_view kFirstModule = kKnownModules.front();
constexpr std::string_view kEnding = ".so";

bool IsKnown(const fs::path& file) {
  return std::ranges::find(kKnownModules, file.filename().string()) != kKnownModules.end();
}

std::vector<fs::path> ModulesIn(const std::string& directory) {
  std::vector<fs::path> files;
  std::error_code error;
  for (auto entry = fs::directory_iterator(directory, error);
       !error && entry != fs::directory_iterator(); entry.increment(error))
    if (entry->path().extension() == kEnding) files.push_back(entry->path());
  std::ranges::sort(files, {}, [](const fs::path& file) {
    return std::pair(file.filename() != kFirstModule, file.filename().string());
  });
  return files;
}

std::string Listed(const std::vector<std::string>& directories) {
  std::string list;
  for (const std::string& directory : directories)
    list += (list.empty() ? "" : " and ") + directory;
  return list;
}

}  // namespace

Result<std::vector<std::string>> DefaultModuleFiles(const std::vector<std::string>& directories) {
  for (const std::string& directory : directories) {
    const std::vector<fs::path> files = ModulesIn(directory);
    if (!files.empty()) return std::vector<std::string>(files.begin(), files.end());
  }
  return Error::IllegalState(
      kModuleFiles.Here(), Format("No module (*.so) was found; looked in @.", Listed(directories)));
}

Result<ChosenModules> KnownModuleFiles(const std::vector<std::string>& directories) {
  ChosenModules chosen;
  for (const std::string& directory : directories) {
    for (const fs::path& file : ModulesIn(directory))
      (IsKnown(file) ? chosen.files : chosen.passedOver).push_back(file);
    if (!chosen.files.empty()) return chosen;
  }
  return Error::IllegalState(kModuleFiles.Here(), Format("No module @ was found; looked in @.",
                                                         kFirstModule, Listed(directories)));
}

Result<std::string> FindModuleFile(const std::string& module,
                                   const std::vector<std::string>& directories) {
  if (module.find('/') != std::string::npos || module.ends_with(kEnding)) return module;
  for (const std::string& directory : directories) {
    const fs::path file = fs::path(directory) / (module + std::string(kEnding));
    std::error_code error;
    if (fs::exists(file, error)) return file.string();
  }
  return Error::IllegalArgument(
      kModuleFiles.Here(),
      Format("There is no module \"@\"; looked in @.", module, Listed(directories)));
}

std::vector<std::string> DefaultModuleDirectories() {
  return {(fs::path(DirectoryOfProgram()).parent_path() / "modules").string(),
          (fs::path(DirectoryOfHostLibrary()) / "tarvo" / "modules").string()};
}

}  // namespace tarvo
