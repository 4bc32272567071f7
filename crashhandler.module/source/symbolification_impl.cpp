#include "symbolification_impl.h"

#include "tarvo/source_location.h"
#include "tarvo/symbolification.h"

namespace tarvo::crashhandler {
namespace {

constexpr SourceFile kSymbolificationImpl{"crashhandler.module/source/symbolification_impl"};

class SymbolificationImpl final : public Counted<Symbolification> {
 public:
  Result<void> Load(const Url&, const String&) override {
    return Error::IllegalState(kSymbolificationImpl.Here(), "Not supported");
  }
  Result<void> Resolve(std::uint64_t, String&, std::int64_t&, String&) override {
    return Error::IllegalState(kSymbolificationImpl.Here(), "Not supported");
  }
};

}  // namespace

void RegisterSymbolificationImpl(Registration& registration) {
  registration.components.push_back(
      {.interfaceId = Symbolification::kInterfaceId,
       .className = "SymbolificationImpl",
       .create = []() -> Ref<Object> { return Make<SymbolificationImpl>(); }});
}

}  // namespace tarvo::crashhandler
