#include "configuration/configuration_source.h"

#include "tarvo/format.h"

namespace tarvo {
namespace {

constexpr SourceFile kConfigurationSource{"tarvo/source/configuration_source"};
constexpr std::string_view kArgumentStart = "--";
constexpr std::string_view kEntryStart = "g_";

}  // namespace

Result<std::vector<Assignment>> ReadArguments(const std::vector<std::string>& arguments) {
  std::vector<Assignment> assignments;
  for (const std::string& argument : arguments) {
    const std::size_t equals = argument.find('=');
    if (!argument.starts_with("--g_") || equals == std::string::npos) {
      return Error::IllegalArgument(
          kConfigurationSource.Here(),
          Format("The command line option @ sets nothing: expected --g_NAME=VALUE.", argument));
    }
    const std::size_t start = kArgumentStart.size();
    assignments.push_back({.name = argument.substr(start, equals - start),
                           .value = PlainText{argument.substr(equals + 1)},
                           .source = "command line"});
  }
  return assignments;
}

std::vector<Assignment> ReadEnvironment(const char* const* environment, std::string_view start) {
  std::vector<Assignment> assignments;
  for (; environment != nullptr && *environment != nullptr; ++environment) {
    const std::string_view variable = *environment;
    const std::size_t equals = variable.find('=');
    if (equals == std::string_view::npos || !variable.starts_with(start)) continue;
    const std::string_view name = variable.substr(start.size(), equals - start.size());
    if (!name.starts_with(kEntryStart)) continue;
    assignments.push_back({.name = std::string(name),
                           .value = PlainText{std::string(variable.substr(equals + 1))},
                           .source = Format("environment variable @@", start, name).ToStdString()});
  }
  return assignments;
}

}  // namespace tarvo
