#pragma once

#include <string>

#include "tarvo/data_dictionary.h"

namespace tarvo::toolkit {

/// `tree` as JSON, for standard output.
[[nodiscard]] std::string JsonText(const DataDictionary& tree);

}  // namespace tarvo::toolkit
