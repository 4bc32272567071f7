#include "files/application_directories.h"

#include <dlfcn.h>

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

std::string DirectoryOfHostLibrary() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&DirectoryOfHostLibrary), &info) == 0) return {};
  std::error_code error;
  return DirectoryOf(std::filesystem::canonical(info.dli_fname, error).string());
}

}  // namespace tarvo
