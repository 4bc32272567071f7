#include "tree_text.h"

#include "json/json_writer.h"

namespace tarvo::crashhandler {

std::string TreeText(const DataDictionary& tree) { return JsonDocument(tree); }

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
