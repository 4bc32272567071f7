#pragma once

#include <cstdint>
#include <string_view>

#include "tarvo/object.h"
#include "tarvo/result.h"
#include "tarvo/string.h"
#include "tarvo/url.h"

namespace tarvo {

/// Turns addresses inside a module into function, source file and line. The framework creates a
/// new object each time the interface is asked for, so a client that resolves in several threads
/// takes one for each; an object itself is used by one thread at a time.
class Symbolification : public Object {
 public:
  static constexpr std::string_view kInterfaceId = "net.tarvo.interface.symbolification";

  /// Prepares for look-ups in the symbol bundle at `symbolFile` for `architecture` ("x86_64",
  /// "arm64"). Replaces what was loaded before; loading the same bundle again is cheap.
  virtual Result<void> Load(const Url& symbolFile, const String& architecture) = 0;

  /// Resolves `offset`, an address relative to the module's base. On failure `sourceFile`, `line`
  /// and `function` keep what they held.
  virtual Result<void> Resolve(std::uint64_t offset, String& sourceFile, std::int64_t& line,
                               String& function) = 0;

 protected:
  ~Symbolification() = default;
};

using SymbolificationRef = Ref<Symbolification>;

}  // namespace tarvo
