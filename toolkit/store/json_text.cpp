#include "toolkit/store/json_text.h"

#include "json/json_writer.h"

namespace tarvo::toolkit {

std::string JsonText(const DataDictionary& tree) { return JsonDocument(tree); }

}  // namespace tarvo::toolkit
