#include "host/module.h"

#include <dlfcn.h>
#include <sched.h>

#include <cstdlib>
#include <system_error>

#include "host/module_connection.h"

namespace tarvo {
namespace {

constexpr SourceFile kModule{"tarvo/source/module"};

void YieldCpu() { sched_yield(); }

/// The absolute path: the loader searches its own directories for a name without "/".
Result<std::string> AbsolutePath(const std::string& file) {
  char* path = realpath(file.c_str(), nullptr);
  if (path == nullptr)
    return CouldNotLoadModule(kModule.Here(), file, std::generic_category().message(errno));
  std::string absolute = path;
  std::free(path);
  return absolute;
}

}  // namespace

Result<std::unique_ptr<Module>> Module::Load(const std::string& file, Framework& framework) {
  auto path = AbsolutePath(file);
  if (!path) return path.GetError();
  void* library = dlopen(path->c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) return CouldNotLoadModule(kModule.Here(), file, dlerror());
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
