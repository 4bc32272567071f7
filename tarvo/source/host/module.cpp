#include "host/module.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <sched.h>

#include <cstdlib>
#include <cstring>
#include <system_error>

#include "tarvo/format.h"

namespace tarvo {
namespace {

constexpr SourceFile kSource{"tarvo/source/module"};

void YieldCpu() { sched_yield(); }

Error CouldNotLoad(SourceLocation where, const std::string& file, std::string_view reason) {
  return Error::IllegalState(where, Format("Could not load module \"@\": @", file, reason));
}

/// The absolute path: the loader searches its own directories for a name without "/".
Result<std::string> AbsolutePath(const std::string& file) {
  char* path = realpath(file.c_str(), nullptr);
  if (path == nullptr)
    return CouldNotLoad(kSource.Here(), file, std::generic_category().message(errno));
  std::string absolute = path;
  std::free(path);
  return absolute;
}

/// A data object of at least `size` bytes that the library itself exports. dlsym alone would also
/// answer with a function, or with an object of a library that this one depends on.
void* FindData(void* library, const char* name, std::size_t size) {
  void* address = dlsym(library, name);
  if (address == nullptr) return nullptr;
  link_map* own = nullptr;
  Dl_info info{};
  void* holder = nullptr;
  void* extra = nullptr;
  if (dlinfo(library, RTLD_DI_LINKMAP, &own) != 0 ||
      dladdr1(address, &info, &holder, RTLD_DL_LINKMAP) == 0 || holder != own ||
      dladdr1(address, &info, &extra, RTLD_DL_SYMENT) == 0 || extra == nullptr)
    return nullptr;
  const auto* symbol = static_cast<const ElfW(Sym)*>(extra);
  const bool fits = ELF64_ST_TYPE(symbol->st_info) == STT_OBJECT && symbol->st_size >= size;
  return fits ? address : nullptr;
}

/// The library's connection, checked.
Result<Connection*> FindConnection(void* library, const std::string& file) {
  constexpr std::size_t kVersionAndSize = offsetof(Connection, size) + sizeof(Connection::size);
  auto* connection = static_cast<Connection*>(FindData(library, "g_tarvo", kVersionAndSize));
  if (connection == nullptr)
    return CouldNotLoad(kSource.Here(), file, "it is no module, it does not export g_tarvo");
  if (connection->sdkVersion != kSdkVersion || connection->size != sizeof(Connection)) {
    return CouldNotLoad(
        kSource.Here(), file,
        Format("it was built for SDK version @ (connection of @ bytes), expected version @ (@ "
               "bytes)",
               connection->sdkVersion, connection->size, kSdkVersion, sizeof(Connection)));
  }
  if (connection->moduleId == nullptr || connection->registerDeclarations == nullptr)
    return CouldNotLoad(kSource.Here(), file, "its g_tarvo is incomplete");
  return connection;
}

}  // namespace

Result<std::unique_ptr<Module>> Module::Load(const std::string& file, Framework& framework) {
  auto path = AbsolutePath(file);
  if (!path) return path.GetError();
  void* library = dlopen(path->c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) return CouldNotLoad(kSource.Here(), file, dlerror());
  const auto connection = FindConnection(library, file);
  if (!connection) {
    dlclose(library);  // nothing of it was used
    return connection.GetError();
  }
  std::unique_ptr<Module> module(new Module(*std::move(path), **connection));
  module->connection_.framework = &framework;
  if (auto* yield = static_cast<CpuYieldDelegate*>(
          FindData(library, "g_CpuYieldDelegate", sizeof(CpuYieldDelegate))))
    *yield = YieldCpu;
  module->connection_.registerDeclarations(module->registration_);
  return module;
}

Module::~Module() {
  Free();
  connection_.framework = nullptr;
}

Result<void> Module::Initialise() {
  for (const LifecycleRecord& record : registration_.lifecycle) {
    if (record.initialise != nullptr)
      if (auto result = record.initialise(); !result) return result;
    ++initialised_;
  }
  for (ComponentRecord& component : registration_.components) component.status = "initialized";
  return {};
}

void Module::Free() {
  for (ComponentRecord& component : registration_.components) component.status = "uninitialized";
  while (initialised_ > 0) {
    const LifecycleRecord& record = registration_.lifecycle[--initialised_];
    if (record.free != nullptr) record.free();
  }
}

}  // namespace tarvo
