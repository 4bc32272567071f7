#pragma once

#include <string>
#include <variant>
#include <vector>

#include "configuration/configuration_value.h"
#include "tarvo/result.h"

namespace tarvo {

/// A value that a source's own types cannot express as one of ours, by what it is: "an array".
struct ForeignValue {
  std::string what;
};

/// A text, still to be read by the entry's kind.
struct PlainText {
  std::string text;
};

/// What one source says about one entry.
struct Assignment {
  std::string name;
  std::variant<PlainText, ConfigurationValue, ForeignValue> value;
  std::string source;  ///< for people: "command line", "settings.toml:3"
};

/// Reads "--g_NAME=VALUE" arguments. An illegal-argument error that names the first of another
/// form.
Result<std::vector<Assignment>> ReadArguments(const std::vector<std::string>& arguments);

/// How variables of the environment begin that give entries their values, ...
inline constexpr std::string_view kVariableStart = "TARVO_";
/// ... and those by which one program gives defaults to others that it starts: stronger than what
/// these declare themselves, weaker than their configuration.
inline constexpr std::string_view kDefaultVariableStart = "TARVO_DEFAULT_";

/// Reads the variables "<start>g_NAME" of an environment (`environ`).
std::vector<Assignment> ReadEnvironment(const char* const* environment, std::string_view start);

/// Larger configuration files are refused.
inline constexpr std::size_t kMaximumConfigurationFileBytes = std::size_t{1} << 20;

/// Reads a TOML file of lines `g_name = value`, in the order of its lines. File errors, and
/// conversion errors that name file and line.
Result<std::vector<Assignment>> ReadConfigurationFile(const std::string& path);

}  // namespace tarvo
