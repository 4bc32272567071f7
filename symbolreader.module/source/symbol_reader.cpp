#include "symbol_reader.h"

#include <algorithm>
#include <exception>

#include "connection.h"
#include "index/missing_files.h"
#include "source.h"
#include "symbol_file_cache.h"
#include "tarvo/format.h"
#include "tarvo/framework.h"
#include "tarvo/resolve_observer.h"
#include "tarvo/symbolification.h"

namespace tarvo::symbolreader {
namespace {

Result<SymbolFileRef> Open(const SymbolFileRequest& request) try {
  return SymbolFileCache::Instance().Open(request.file.SystemPath().ToStdString(),
                                          {.architecture = request.architecture.ToStdString(),
                                           .id = request.id.ToStdString(),
                                           .takesSymbolTable = request.takesSymbolTable,
                                           .platform = request.platform.ToStdString()});
} catch (const std::bad_alloc&) {
  return Error::OutOfMemory(kSource.Here());
} catch (const std::exception& exception) {
  return Error::IllegalState(kSource.Here(), Format("The symbol bundle @ could not be loaded: @.",
                                                    request.file, exception.what()));
}

/// Tells the ResolveObserver, if there is one, where parts of `file` were looked for.
void TellMissed(const SymbolFile& file) {
  constexpr std::size_t kMostTold = 100;
  if (file.missing.empty()) return;
  const auto observer = Bind<ResolveObserver>(*g_tarvo.framework);
  if (!observer) return;
  std::size_t told = 0;
  for (const MissingFile& part : file.missing)
    for (const std::string& path : PathsOf(part.place, file.path))
      if (told++ < kMostTold) (*observer)->PartMissed(Url::FromSystemPath(path));
}

class SymbolReader final : public Counted<Symbolification> {
 public:
  Result<void> Load(const Url& symbolFile, const String& architecture) override {
    // An empty text is one that the report holds; only the other interface can leave it out.
    if (architecture.IsEmpty()) {
      return Error::IllegalArgument(
          kSource.Here(), "The architecture \"\" is not known; expected one like x86_64 or arm64.");
    }
    return reader_.Load({.file = symbolFile, .architecture = architecture});
  }
  Result<void> Resolve(std::uint64_t offset, String& sourceFile, std::int64_t& line,
                       String& function) override {
    Result<AddressChain> chain = reader_.Resolve(offset);
    if (!chain) return chain.GetError();
    SourceFrame& innermost = chain->frames.front();
    sourceFile = std::move(innermost.sourceFile);
    line = innermost.line;
    function = std::move(innermost.function);
    return {};
  }

 private:
  BundleReader reader_;
};

class InlineSymbolReader final : public Counted<InlineSymbolification> {
 public:
  Result<void> Load(const SymbolFileRequest& request) override { return reader_.Load(request); }
  Result<AddressChain> Resolve(std::uint64_t offset) override { return reader_.Resolve(offset); }

 private:
  BundleReader reader_;
};

}  // namespace

Result<void> BundleReader::Load(const SymbolFileRequest& request) {
  auto bundle = std::ranges::find(bundles_, request, &Bundle::request);
  if (bundle == bundles_.end()) {
    Bundle opened{request, Open(request)};
    if (opened.file) TellMissed(**opened.file);
    if (bundles_.size() < kRememberedBundles) {
      bundle = bundles_.insert(bundles_.end(), std::move(opened));
    } else {
      bundle = bundles_.begin() + static_cast<std::ptrdiff_t>(next_++ % kRememberedBundles);
      *bundle = std::move(opened);
    }
  }
  // No count of holders: all threads would change the one of a file at each frame.
  loaded_ = bundle->file ? bundle->file->get() : nullptr;
  if (!bundle->file) return bundle->file.GetError();
  return {};
}

Result<AddressChain> BundleReader::Resolve(std::uint64_t offset) {
  if (loaded_ == nullptr) return Error::IllegalState(kSource.Here(), "No symbol bundle is loaded.");
  const auto address = ImageAddress(loaded_->format, loaded_->image, offset);
  if (!address) {
    return Error::IllegalArgument(
        kSource.Here(),
        Format("The offset 0x@{x} lies outside the image of @, which has the addresses 0x@{x} to "
               "0x@{x}.",
               offset, loaded_->path, loaded_->image.start, loaded_->image.end));
  }
  auto chain = loaded_->source->Find(*address, names_.Get());
  if (!chain) {
    return Error::IllegalState(
        kSource.Here(),
        Format("Nothing is known of the address 0x@{x} in @.", *address, loaded_->path));
  }
  return *std::move(chain);
}

void RegisterSymbolReader(Registration& registration) {
  constexpr std::string_view kClassName = "SymbolReader";
  registration.components.push_back(
      {.interfaceId = Symbolification::kInterfaceId,
       .className = kClassName,
       .create = []() -> Ref<Object> { return Make<SymbolReader>(); }});
  registration.components.push_back(
      {.interfaceId = InlineSymbolification::kInterfaceId,
       .className = kClassName,
       .create = []() -> Ref<Object> { return Make<InlineSymbolReader>(); }});
}

}  // namespace tarvo::symbolreader
