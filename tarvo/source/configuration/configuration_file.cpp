// Reads the TOML file of configuration values; a file of its own so that one source compiles the
// TOML library.

#include <algorithm>
#include <utility>

#define TOML_EXCEPTIONS 0
#define TOML_ENABLE_FORMATTERS 0
#include <toml++/toml.h>

#include "configuration/configuration_source.h"
#include "files/file_reading.h"
#include "tarvo/format.h"

namespace tarvo {
namespace {

constexpr SourceFile kConfigurationFile{"tarvo/source/configuration_file"};

std::variant<PlainText, ConfigurationValue, ForeignValue> ValueOf(const toml::node& node) {
  if (const auto* truth = node.as_boolean()) return ConfigurationValue(truth->get());
  if (const auto* whole = node.as_integer()) return ConfigurationValue(whole->get());
  if (const auto* number = node.as_floating_point()) return ConfigurationValue(number->get());
  if (const auto* text = node.as_string()) return ConfigurationValue(String(text->get()));
  if (node.is_table()) return ForeignValue{"a table"};
  if (node.is_array()) return ForeignValue{"an array"};
  return ForeignValue{"a date or time"};
}

std::string Place(const std::string& path, toml::source_index line) {
  return Format("@:@", path, line).ToStdString();
}

}  // namespace

Result<std::vector<Assignment>> ReadConfigurationFile(const std::string& path) {
  const auto text = ReadWholeFile(Url::FromSystemPath(path), kMaximumConfigurationFileBytes);
  if (!text) return text.GetError();
  const toml::parse_result table = toml::parse(text->View(), path);
  if (table.failed()) {
    return Error::Conversion(kConfigurationFile.Here(),
                             Format("@: @", Place(path, table.error().source().begin.line),
                                    table.error().description()));
  }
  std::vector<std::pair<toml::source_index, Assignment>> byLine;
  for (const auto& [key, node] : table.table()) {
    const toml::source_index line = key.source().begin.line;
    byLine.emplace_back(line, Assignment{.name = std::string(key.str()),
                                         .value = ValueOf(node),
                                         .source = Place(path, line)});
  }
  std::ranges::sort(byLine, {}, [](const auto& entry) { return entry.first; });
  std::vector<Assignment> assignments;
  for (auto& [line, assignment] : byLine) assignments.push_back(std::move(assignment));
  return assignments;
}

}  // namespace tarvo
