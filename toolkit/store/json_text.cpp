#include "toolkit/store/json_text.h"

#include "json/json_writer.h"

namespace tarvo::toolkit {

std::string JsonText(const DataDictionary& tree) {
  std::string text;
  const auto append = [&](std::string_view bytes) {
    text += bytes;
    return Result<void>();
  };
  return WriteJson(tree, append) ? text : std::string();  // cannot fail
}

}  // namespace tarvo::toolkit
