#include "crashlog/resolving/symbol_lookup.h"

#include <utility>

#include "connection.h"
#include "crashlog/base/source.h"
#include "crashlog/resolving/application_info.h"
#include "tarvo/framework.h"
#include "tarvo/symbolification.h"

namespace tarvo::crashhandler {
namespace {

class PlainLookup final : public SymbolLookup {
 public:
  PlainLookup(SymbolificationRef symbols, String architecture)
      : symbols_(std::move(symbols)), architecture_(std::move(architecture)) {}

  Result<void> Load(const SymbolFileRequest& request) override {
    return symbols_->Load(request.file, architecture_);
  }
  bool StaysLoaded() const override { return false; }
  Result<AddressChain> Resolve(std::uint64_t offset) override {
    SourceFrame frame;
    auto resolved = symbols_->Resolve(offset, frame.sourceFile, frame.line, frame.function);
    if (!resolved) return resolved.GetError();
    return AddressChain{.frames = {std::move(frame)}};
  }

 private:
  SymbolificationRef symbols_;
  String architecture_;
};

class InlineLookup final : public SymbolLookup {
 public:
  InlineLookup(InlineSymbolificationRef symbols, String architecture)
      : symbols_(std::move(symbols)), architecture_(std::move(architecture)) {}

  Result<void> Load(const SymbolFileRequest& request) override {
    SymbolFileRequest full = request;
    full.architecture = architecture_;
    return symbols_->Load(full);
  }
  bool StaysLoaded() const override { return true; }
  Result<AddressChain> Resolve(std::uint64_t offset) override {
    Result<AddressChain> chain = symbols_->Resolve(offset);
    if (chain && chain->frames.empty())
      return Error::IllegalState(kSource.Here(), "The symbol reader answered without a frame.");
    return chain;
  }

 private:
  InlineSymbolificationRef symbols_;
  String architecture_;
};

}  // namespace

Result<std::unique_ptr<SymbolLookup>> BindSymbolLookup(const DataDictionary& crashLog) {
  Result<SymbolificationRef> plain = Bind<Symbolification>(*g_tarvo.framework);
  if (!plain) return plain.GetError();
  auto chains = Bind<InlineSymbolification>(*g_tarvo.framework);
  if (!chains) {
    return std::unique_ptr<SymbolLookup>(
        std::make_unique<PlainLookup>(*std::move(plain), ApplicationArchitecture(crashLog)));
  }
  return std::unique_ptr<SymbolLookup>(
      std::make_unique<InlineLookup>(*std::move(chains), StatedArchitecture(crashLog)));
}

}  // namespace tarvo::crashhandler
