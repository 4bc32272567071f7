#pragma once

#include <dlfcn.h>

#include <string_view>

#include "tarvo/format.h"
#include "tarvo/result.h"

namespace tarvo {

/// Binds functions of a library that is loaded for this and kept: the host library brings what few
/// programs need only when they do. Used once a library, by one thread.
class LibraryBinder {
 public:
  explicit LibraryBinder(const char* library)
      : library_(library), handle_(dlopen(library, RTLD_NOW | RTLD_LOCAL)) {
    if (handle_ == nullptr) problem_ = Format("The library could not be loaded: @", dlerror());
  }

  template <typename Function>
  LibraryBinder& Bind(const char* name, Function& function) {
    function = handle_ == nullptr ? nullptr : reinterpret_cast<Function>(dlsym(handle_, name));
    if (function == nullptr && problem_.IsEmpty())
      problem_ = Format("The library @ has no function @.", library_, name);
    return *this;
  }

  /// Why not all is there; empty when it is.
  [[nodiscard]] const String& Problem() const noexcept { return problem_; }

 private:
  const char* library_;
  void* handle_;
  String problem_;
};

}  // namespace tarvo
