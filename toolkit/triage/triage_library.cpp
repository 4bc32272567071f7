#include "toolkit/triage/triage_library.h"

#include <dlfcn.h>

#include <filesystem>

#include "tarvo/format.h"
#include "tarvo/host/host.h"
#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

constexpr SourceFile kTriageLibrarySource{"command/triage/triage_library"};

std::string LibraryPath() {
  Dl_info host{};
  if (dladdr(reinterpret_cast<const void*>(&Host::Start), &host) == 0) return kTriageLibraryFile;
  return std::filesystem::path(host.dli_fname).parent_path() / "tarvo" / kTriageLibraryFile;
}

struct Loaded {
  const TriageLibrary* library = nullptr;
  String problem;

  Loaded() {
    void* file = dlopen(LibraryPath().c_str(), RTLD_NOW | RTLD_LOCAL);
    if (file != nullptr)
      library = static_cast<const TriageLibrary*>(dlsym(file, kTriageLibrarySymbol));
    if (library == nullptr)
      problem =
          Format("The library that groups crashes could not be loaded: @", SafeText(dlerror()));
  }
};

}  // namespace

Result<const TriageLibrary*> TriageLibrary::Load() {
  static const Loaded loaded;
  if (loaded.library == nullptr)
    return Error::IllegalState(kTriageLibrarySource.Here(), loaded.problem);
  return loaded.library;
}

}  // namespace tarvo::toolkit
