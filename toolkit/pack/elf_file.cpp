#include "toolkit/pack/elf_file.h"

#include <dlfcn.h>

#include <filesystem>

#include "tarvo/format.h"
#include "tarvo/host/host.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/pack/elf_operations.h"

namespace tarvo::toolkit {
namespace {

constexpr SourceFile kSource{"command/pack/elf_file"};

/// The library's path: it stands beside the host library.
std::string LibraryPath() {
  Dl_info host{};
  if (dladdr(reinterpret_cast<const void*>(&Host::Start), &host) == 0) return kElfLibrary;
  return std::filesystem::path(host.dli_fname).parent_path() / kElfLibrary;
}

/// Loads the library once. It stays, as errors hold texts of it.
Result<const ElfOperations*> Load() {
  static const ElfOperations* const operations = [] {
    void* library = dlopen(LibraryPath().c_str(), RTLD_NOW | RTLD_LOCAL);
    return static_cast<const ElfOperations*>(
        library == nullptr ? nullptr : dlsym(library, kElfOperationsSymbol));
  }();
  if (operations != nullptr) return operations;
  return Error::IllegalState(
      kSource.Here(),
      Format("ELF files cannot be packed: @ cannot be loaded. It is made where LLVM 19 is there.",
             SafeText(LibraryPath())));
}

}  // namespace

Result<ElfFacts> ReadElfFacts(const std::string& path) {
  const auto operations = Load();
  if (!operations) return operations.GetError();
  return (*operations)->readFacts(path);
}

Result<void> WriteDebugSections(const std::string& path, std::FILE* to) {
  const auto operations = Load();
  if (!operations) return operations.GetError();
  return (*operations)->writeDebugSections(path, to);
}

Result<std::uint32_t> FileChecksum(const std::string& path) {
  const auto operations = Load();
  if (!operations) return operations.GetError();
  return (*operations)->checksum(path);
}

}  // namespace tarvo::toolkit
