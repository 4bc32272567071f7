#include "indexer/demangle.h"

#include <llvm/Demangle/Demangle.h>

#include <cstdlib>
#include <memory>

namespace tarvo::symbolreader {

std::string Demangle(std::string_view name) {
  std::string readable;
  if (llvm::nonMicrosoftDemangle(name, readable)) return readable;
  if (!name.starts_with('?')) return std::string(name);
  constexpr auto kFlags =
      static_cast<llvm::MSDemangleFlags>(llvm::MSDF_NoAccessSpecifier | llvm::MSDF_NoReturnType |
                                         llvm::MSDF_NoCallingConvention | llvm::MSDF_NoMemberType);
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> text(
      llvm::microsoftDemangle(name, nullptr, &status, kFlags), &std::free);
  return status == 0 && text != nullptr ? std::string(text.get()) : std::string(name);
}

}  // namespace tarvo::symbolreader
