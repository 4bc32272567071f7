#include "command/pack/elf_file.h"

#include <dlfcn.h>

#include "command/pack/elf_operations.h"
#include "tarvo/format.h"

namespace tarvo::command {
namespace {

constexpr SourceFile kSource{"command/pack/elf_file"};

/// Loads the library once. It stays, as errors hold texts of it.
Result<const ElfOperations*> Load() {
  static const ElfOperations* const operations = [] {
    void* library = dlopen(kElfLibrary, RTLD_NOW | RTLD_LOCAL);
    return static_cast<const ElfOperations*>(
        library == nullptr ? nullptr : dlsym(library, kElfOperationsSymbol));
  }();
  if (operations != nullptr) return operations;
  return Error::IllegalState(
      kSource.Here(),
      Format("ELF files cannot be packed: @ cannot be loaded. It is made where LLVM 19 is there.",
             kElfLibrary));
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

}  // namespace tarvo::command
