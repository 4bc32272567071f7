#pragma once

#include <string>

#include "tarvo/data_dictionary.h"

namespace tarvo::crashhandler {

/// The tree as the host writes it: an indented JSON document.
std::string TreeText(const DataDictionary& tree);

/// The same on one line.
std::string TreeLine(const DataDictionary& tree);

}  // namespace tarvo::crashhandler
