#include "files/application_directories.h"

#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

namespace tarvo {

std::string DirectoryOf(const std::string& absolutePath) {
  return std::filesystem::path(absolutePath).parent_path().string();
}

std::string DirectoryOfProgram() {
  // The text of the link, not what it leads to: the program's file may have been replaced since.
  std::error_code error;
  return DirectoryOf(std::filesystem::read_symlink("/proc/self/exe", error).string());
}

std::string DirectoryOfApplication() {
  const std::filesystem::path own = DirectoryOfProgram();
  const std::filesystem::path above = own.parent_path();
  constexpr std::array kSystems = {"/", "/usr", "/usr/local"};
  const bool isSystems = std::ranges::find(kSystems, above.string()) != kSystems.end();
  std::error_code error;
  const bool hasLibraries = std::filesystem::is_directory(above / "lib", error) ||
                            std::filesystem::is_directory(above / "lib64", error);
  return own.filename() == "bin" && hasLibraries && !isSystems ? above.string() : own.string();
}

std::string DirectoryOfHostLibrary() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&DirectoryOfHostLibrary), &info) == 0) return {};
  std::error_code error;
  return DirectoryOf(std::filesystem::canonical(info.dli_fname, error).string());
}

}  // namespace tarvo
