#pragma once

#include "tarvo/framework.h"

namespace tarvo {

class DataFormats final : public DataFormatService {
 public:
  Result<void> WriteJson(const DataDictionary& tree, const Url& file) override;
};

}  // namespace tarvo
