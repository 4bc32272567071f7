#include "tree_text.h"

#include <gtest/gtest.h>

#include "json/json_writer.h"

namespace tarvo::crashhandler {

std::string TreeText(const DataDictionary& tree) {
  std::string document;
  EXPECT_TRUE(WriteJson(tree, [&](std::string_view text) -> Result<void> {
    document += text;
    return {};
  }));
  return document;
}

std::string TreeLine(const DataDictionary& tree) {
  std::string line;
  bool isIndentation = false;
  for (const char c : TreeText(tree)) {
    isIndentation = c == '\n' || (isIndentation && c == ' ');
    if (!isIndentation) line += c;
  }
  return line;
}

}  // namespace tarvo::crashhandler
