#pragma once

#include "tarvo/framework.h"

namespace tarvo {

class Files final : public FileService {
 public:
  [[nodiscard]] FileKind Detect(const Url& url) override;
  Result<void> CreateDirectory(const Url& url) override;
  Result<Ref<BrowseIterator>> Browse(const Url& directory) override;
  Result<String> ReadText(const Url& file) override;
  Result<String> ReadStart(const Url& file, std::size_t size) override;
  Result<Ref<OutputFile>> Create(const Url& file) override;
};

}  // namespace tarvo
