#include "symbol_reader.h"

#include <algorithm>
#include <exception>

#include "source.h"
#include "symbol_file_cache.h"
#include "tarvo/format.h"

namespace tarvo::symbolreader {
namespace {

Result<SymbolFileRef> Open(const Url& symbolFile, const String& architecture) try {
  return SymbolFileCache::Instance().Open(symbolFile.SystemPath().ToStdString(), architecture);
} catch (const std::bad_alloc&) {
  return Error::OutOfMemory(kSource.Here());
} catch (const std::exception& exception) {
  return Error::IllegalState(kSource.Here(), Format("The symbol bundle @ could not be loaded: @.",
                                                    symbolFile, exception.what()));
}

}  // namespace

Result<void> SymbolReader::Load(const Url& symbolFile, const String& architecture) {
  auto bundle = std::ranges::find_if(bundles_, [&](const Bundle& remembered) {
    return remembered.url == symbolFile && remembered.architecture == architecture;
  });
  if (bundle == bundles_.end()) {
    Bundle opened{symbolFile, architecture, Open(symbolFile, architecture)};
    if (bundles_.size() < kRememberedBundles) {
      bundle = bundles_.insert(bundles_.end(), std::move(opened));
    } else {
      bundle = bundles_.begin() + static_cast<std::ptrdiff_t>(next_++ % kRememberedBundles);
      *bundle = std::move(opened);
    }
  }
  loaded_ = bundle->file.ValueOr(nullptr);
  if (!bundle->file) return bundle->file.GetError();
  return {};
}

Result<void> SymbolReader::Resolve(std::uint64_t offset, String& sourceFile, std::int64_t& line,
                                   String& function) {
  if (loaded_ == nullptr) return Error::IllegalState(kSource.Here(), "No symbol bundle is loaded.");
  const auto address = ImageAddress(loaded_->format, loaded_->image, offset);
  if (!address) {
    return Error::IllegalArgument(
        kSource.Here(),
        Format("The offset 0x@{x} lies outside the image of @, which has the addresses 0x@{x} to "
               "0x@{x}.",
               offset, loaded_->path, loaded_->image.start, loaded_->image.end));
  }
  auto position = loaded_->source->Find(*address);
  if (!position) {
    return Error::IllegalState(
        kSource.Here(),
        Format("Nothing is known of the address 0x@{x} in @.", *address, loaded_->path));
  }
  sourceFile = std::move(position->sourceFile);
  line = position->line;
  function = std::move(position->function);
  return {};
}

void RegisterSymbolReader(Registration& registration) {
  registration.components.push_back(
      {.interfaceId = Symbolification::kInterfaceId,
       .className = "SymbolReader",
       .create = []() -> Ref<Object> { return Make<SymbolReader>(); }});
}

}  // namespace tarvo::symbolreader
