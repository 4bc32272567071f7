#include "toolkit/pack/pack_library.h"

#include <dlfcn.h>

#include <filesystem>

#include "tarvo/format.h"
#include "tarvo/host/host.h"
#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

constexpr SourceFile kPackLibrary{"command/pack/pack_library"};

std::string LibraryPath() {
  Dl_info host{};
  if (dladdr(reinterpret_cast<const void*>(&Host::Start), &host) == 0) return kPackLibraryFile;
  return std::filesystem::path(host.dli_fname).parent_path() / "tarvo" / kPackLibraryFile;
}

struct Loaded {
  const PackLibrary* library = nullptr;
  String problem;

  Loaded() {
    void* file = dlopen(LibraryPath().c_str(), RTLD_NOW | RTLD_LOCAL);
    if (file != nullptr) library = static_cast<const PackLibrary*>(dlsym(file, kPackLibrarySymbol));
    if (library == nullptr)
      problem = Format("The library that packs could not be loaded: @", SafeText(dlerror()));
  }
};

}  // namespace

Result<const PackLibrary*> PackLibrary::Load() {
  static const Loaded loaded;
  if (loaded.library == nullptr) return Error::IllegalState(kPackLibrary.Here(), loaded.problem);
  return loaded.library;
}

}  // namespace tarvo::toolkit
